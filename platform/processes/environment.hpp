#pragma once

#include <vector>

namespace platform {

/// The environment that the process was started with, null at the end, for a program that it starts: where
/// it was moved aside, as it was then, otherwise the process's own. The texts belong to the process.
std::vector<char*> inheritedEnvironment();

/// Empties the environment of the process, given as `main` gets it, and keeps what it was. To be called once,
/// before any library can have read a variable; needs no memory and nothing of the C library.
void moveEnvironmentAside(char** environment) noexcept;

}  // namespace platform
