# What a daemon's developer gets: headers, both libraries, the platform stand-in, the CMake package
# and the pkg-config file.

include(CMakePackageConfigHelpers)

set(QUILLMARK_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/quillmark)
set(QUILLMARK_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Quillmark)

install(DIRECTORY include2 DESTINATION ${QUILLMARK_INCLUDE_DIR})
install(DIRECTORY platform DESTINATION ${QUILLMARK_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS quillmark quillmark-static EXPORT QuillmarkTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# A layer of the appliance's own comes with the library that was linked to it; programs need not name it, and
# must not get the stand-in in front of it.
set(QUILLMARK_FIND_PLATFORM "")
set(QUILLMARK_PLATFORM_LIBRARY "")
if(TARGET platform)
    install(TARGETS platform EXPORT QuillmarkTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set(QUILLMARK_PLATFORM_LIBRARY " -lquillmark-platform")
elseif(QUILLMARK_PLATFORM_PACKAGE)
    set(QUILLMARK_FIND_PLATFORM "find_dependency(${QUILLMARK_PLATFORM_PACKAGE})")
endif()
install(EXPORT QuillmarkTargets NAMESPACE Quillmark:: DESTINATION ${QUILLMARK_PACKAGE_DIR})

configure_package_config_file(cmake/QuillmarkConfig.cmake.in ${PROJECT_BINARY_DIR}/QuillmarkConfig.cmake
    INSTALL_DESTINATION ${QUILLMARK_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuillmarkConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuillmarkConfig.cmake ${PROJECT_BINARY_DIR}/QuillmarkConfigVersion.cmake
    DESTINATION ${QUILLMARK_PACKAGE_DIR})

# The file says where it stands relative to itself, so that an installed tree can be moved.
file(RELATIVE_PATH QUILLMARK_PREFIX_FROM_PC /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(cmake/quillmark.pc.in ${PROJECT_BINARY_DIR}/quillmark.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillmark.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
