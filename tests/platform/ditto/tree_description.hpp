#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/helpers/program.hpp"

namespace test {

/// Describes everything of a tree that a copy must preserve: types, modes, owners, times, extended
/// attributes, access control lists, content with its holes, link targets and hard links. A hash at the end
/// covers what the list of the entries does not show.
std::string describeTree(const std::filesystem::path& root);

void setModificationTime(const std::filesystem::path& path, long seconds, long nanoseconds);

/// False where the file system has no attributes of that kind.
bool setExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value);

/// An access control list in the kernel's format that grants `user` read permission besides the permissions
/// of owner, group and others.
std::string accessControlList(unsigned user);

/// Runs ditto with two arguments, as `runProgram` does.
Outcome ditto(const std::filesystem::path& source, const std::filesystem::path& destination,
              const std::function<void()>& prepare = {});

/// For use in `prepare`: the program runs as a user without privileges.
void becomeNobody();

}  // namespace test
