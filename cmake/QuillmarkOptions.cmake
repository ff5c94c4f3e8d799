# Language, warnings and sanitizers for everything that is ours.

option(QUILLMARK_WERROR "Warnings are errors" ON)
option(QUILLMARK_BUILD_TOOLS "Build the quillmark command" ON)
option(QUILLMARK_BUILD_BENCH "Build the benchmarks" OFF)
option(QUILLMARK_BUILD_FUZZ "Build the fuzz targets; takes QUILLMARK_SANITIZE with address" OFF)
set(QUILLMARK_SANITIZE "" CACHE STRING "Sanitizers, as the compiler names them: address,undefined or thread")
option(QUILLMARK_COVERAGE "Count executed lines and branches; takes clang" OFF)
option(QUILLMARK_MEMCHECK "Look at no byte behind a text, for valgrind" OFF)
set(QUILLMARK_PLATFORM_TARGET "Quillmark::platform" CACHE STRING
    "The target that supplies the platform layer; an appliance names its own")
set(QUILLMARK_PLATFORM_PACKAGE "" CACHE STRING "The CMake package that brings this target, if it is not ours")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(THREADS_PREFER_PTHREAD_FLAG ON)

# An installed tree can be moved as a whole: everything in it is found from where it stands itself.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

# Tests, tools and libraries find each other in the build tree without an environment variable.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

add_library(quillmark_options INTERFACE)
target_compile_options(quillmark_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${QUILLMARK_WERROR}>:-Werror>
    -fstack-protector-strong)
target_compile_definitions(quillmark_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
if(QUILLMARK_MEMCHECK)
    target_compile_definitions(quillmark_options INTERFACE QUILLMARK_MEMCHECK)
endif()
if(QUILLMARK_SANITIZE)
    target_compile_options(quillmark_options INTERFACE -fsanitize=${QUILLMARK_SANITIZE}
        -fno-omit-frame-pointer -fno-sanitize-recover=all)
    if(NOT QUILLMARK_SANITIZE STREQUAL "thread")
        # The check of table pointers opens descriptors, and takes it for an error when there are none left.
        target_compile_options(quillmark_options INTERFACE -fno-sanitize=vptr)
    endif()
    target_link_options(quillmark_options INTERFACE -fsanitize=${QUILLMARK_SANITIZE})
endif()
if(QUILLMARK_COVERAGE)
    target_compile_options(quillmark_options INTERFACE -fprofile-instr-generate -fcoverage-mapping
        -fprofile-update=atomic)
    target_link_options(quillmark_options INTERFACE -fprofile-instr-generate)
endif()

# Objects that were compiled before are not compiled again, where the machine has a cache for them.
find_program(QUILLMARK_CCACHE ccache)
if(QUILLMARK_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${QUILLMARK_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QUILLMARK_CCACHE})
endif()
