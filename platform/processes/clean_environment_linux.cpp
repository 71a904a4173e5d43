// Part of each program that is installed: no variable of the caller's reaches a library. Some read theirs in
// their constructors, so that main would be too late.

#include "platform/processes/environment.hpp"

namespace {

__attribute__((no_sanitize("address", "undefined"))) void begin(int, char**, char** environment) {
  platform::moveEnvironmentAside(environment);
}

using Beginning = void (*)(int, char**, char**);

// The loader runs it before the constructors of the shared libraries.
__attribute__((section(".preinit_array"), used)) const Beginning kBeginning = begin;

}  // namespace
