# The library's targets.

find_package(Threads REQUIRED)
find_package(Boost REQUIRED)    # headers only
find_library(QUILLMARK_IDN_LIBRARY idn REQUIRED)
find_path(QUILLMARK_IDN_INCLUDE_DIR idna.h REQUIRED)

function(quillmark_add_library)
    add_library(quillmark-objects OBJECT ${ARGN})
    # Nobody replaces one of our functions: calls within a source need no detour.
    target_compile_options(quillmark-objects PRIVATE -fno-semantic-interposition)
    target_link_libraries(quillmark-objects PRIVATE quillmark_options PUBLIC ${QUILLMARK_PLATFORM_TARGET}
        Threads::Threads Boost::headers)
    target_include_directories(quillmark-objects PUBLIC ${PROJECT_SOURCE_DIR}
        PRIVATE ${QUILLMARK_IDN_INCLUDE_DIR})

    add_library(quillmark SHARED $<TARGET_OBJECTS:quillmark-objects>)
    set_target_properties(quillmark PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    add_library(quillmark-static STATIC $<TARGET_OBJECTS:quillmark-objects>)
    set_target_properties(quillmark-static PROPERTIES OUTPUT_NAME quillmark)
    foreach(target quillmark quillmark-static)
        target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/quillmark>)
        target_compile_features(${target} PUBLIC cxx_std_17)
        target_link_libraries(${target} PUBLIC ${QUILLMARK_PLATFORM_TARGET} Threads::Threads Boost::headers
            PRIVATE ${QUILLMARK_IDN_LIBRARY} resolv)
    endforeach()
    target_link_libraries(quillmark PRIVATE $<BUILD_INTERFACE:quillmark_options>)
    # Nor do calls between sources, which would go through a table that every start of a program fills.
    target_link_options(quillmark PRIVATE -Wl,-z,relro,-z,now,-Bsymbolic-functions)
    # The end of every thread that used the library comes back to it, whoever may have closed it meanwhile.
    target_link_options(quillmark PRIVATE -Wl,-z,nodelete)
    target_link_options(quillmark-static INTERFACE LINKER:-z,nodelete)    # a plug-in that it becomes part of
    if(NOT QUILLMARK_SANITIZE)    # whose runtime the program brings
        target_link_options(quillmark PRIVATE -Wl,--no-undefined)
    endif()
    add_library(Quillmark::quillmark ALIAS quillmark)
    add_library(Quillmark::quillmark-static ALIAS quillmark-static)
endfunction()
