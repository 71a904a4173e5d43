#pragma once

#include "platform/processes/spawn.hpp"

namespace platform {

// The part of `spawn` in which systems differ.

/// What `execve` reads. The lists end with a null pointer.
struct ProgramImage {
  const char* path;
  char* const* arguments;
  char* const* environment;
};

/// Starts `program` in the way that `request` describes, with the postconditions of `spawn`.
std::int32_t startProgram(const SpawnRequest& request, const ProgramImage& program);

/// Throws the `SystemError` of `spawn`.
[[noreturn]] void throwNotStarted(const SpawnRequest& request, int errorNumber);

}  // namespace platform
