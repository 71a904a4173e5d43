# Language level, warnings and sanitizers, the same for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_compile_options(
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wcast-align -Wformat=2 -Wimplicit-fallthrough -Wnull-dereference)
if(QUORIN_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(QUORIN_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro,-z,now -Wl,--as-needed)
endif()

# Coverage feedback everywhere; the fuzzers themselves bring the main program.
if(QUORIN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
