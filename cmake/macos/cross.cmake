# A toolchain for building on Linux: clang with the platform's C library headers, and declarations of our own for its
# frameworks. QUORIN_MACOS_COMPILER names the compiler's directory, QUORIN_MACOS_ARCHITECTURE the processor.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUORIN_MACOS_COMPILER QUORIN_MACOS_ARCHITECTURE)
# Trial programs are compiled, not linked.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${QUORIN_MACOS_ARCHITECTURE})
set(CMAKE_CXX_COMPILER ${QUORIN_MACOS_COMPILER}/zig c++ -target ${QUORIN_MACOS_ARCHITECTURE}-macos.14.0)
# The first link builds the C++ library, which takes a minute, and the first with another level of optimisation builds it
# again. CMake links a program of its own with these flags alone: they have the level of a release build.
set(CMAKE_CXX_FLAGS_INIT "-O3 -F \"${CMAKE_CURRENT_LIST_DIR}/frameworks\"")
set(CMAKE_OSX_SYSROOT "")
find_program(CMAKE_AR llvm-ar REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool REQUIRED)
