# Language level, warnings and sanitizers, the same for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(NOT APPLE)  # where all code is position independent, and not every compiler takes the options that ask for it
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()

add_compile_options(
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wcast-align -Wformat=2 -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 takes optimised operations of std::string for overlapping copies (its bug 105651).
  add_compile_options(-Wno-restrict)
endif()
if(QUORIN_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(QUORIN_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong -D_FORTIFY_SOURCE=2)
  # The same program wherever the checkout is: macros of OpenSSL contain the path of the source.
  add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
  if(APPLE)
    add_link_options(-Wl,-dead_strip)
  else()
    add_link_options(-Wl,-z,relro,-z,now -Wl,--as-needed)
  endif()
endif()

if(QUORIN_COVERAGE)
  # The counters live in a mapped file from the start (%c), so that a process that is killed, leaves by _exit or becomes
  # another program has counted too. One file for each program (%m); the path is in the program, not the environment.
  add_compile_options(-fprofile-instr-generate=${CMAKE_BINARY_DIR}/profiles/%c%m.profraw -fcoverage-mapping
    -fprofile-update=atomic -mllvm -runtime-counter-relocation)
  add_link_options(-fprofile-instr-generate)
endif()

if(QUORIN_FUZZ)
  # Coverage for the fuzzers, which bring their own main; all other programs are linked as ever.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
