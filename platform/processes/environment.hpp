#pragma once

#include <vector>

namespace platform {

/// The environment for a program that this process starts, with a null pointer at the end: the environment
/// moved aside, if there is one, else the process's own. The strings belong to the process.
std::vector<char*> inheritedEnvironment();

/// Empties the environment of the process, given as `main` receives it, and keeps its variables for
/// `inheritedEnvironment`. To be called once, before any library can read a variable. Neither allocates nor
/// calls the C library.
void moveEnvironmentAside(char** environment) noexcept;

}  // namespace platform
