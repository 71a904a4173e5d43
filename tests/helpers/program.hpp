#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "rehearse/files/program.hpp"

namespace test {

using rehearse::Outcome;
using rehearse::runProgram;
using rehearse::startProgram;
using rehearse::waitFor;

/// Runs `body` in a process of its own and returns its result, or throws what the process ended with instead.
/// For what would spoil the test program itself, such as giving up privileges.
int inChild(const std::function<int()>& body);

/// The identifier of a process that has ended.
std::string endedProcess();

/// The build tree's prefix, in which the test program lies too.
std::filesystem::path buildPrefix();

}  // namespace test
