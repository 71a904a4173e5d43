// Linked into each installed program, so that no library sees the caller's variables. Some read theirs in
// constructors, for which main would be too late.

#include "platform/processes/environment.hpp"

namespace {

__attribute__((no_sanitize("address", "undefined"))) void begin(int, char**, char** environment) {
  platform::moveEnvironmentAside(environment);
}

using Beginning = void (*)(int, char**, char**);

// The loader calls it before the constructors of the shared libraries.
__attribute__((section(".preinit_array"), used)) const Beginning kBeginning = begin;

}  // namespace
