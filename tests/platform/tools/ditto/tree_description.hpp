#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/program.hpp"

namespace test {

/// Every entry of a tree, the root under ".", with all that a copy has to keep: type, mode, owner, times,
/// extended attributes, content with its holes, link text, and the first of the names that it shares with
/// others.
std::map<std::string, std::string> describeTree(const std::filesystem::path& root);

void setModificationTime(const std::filesystem::path& path, long seconds, long nanoseconds);

/// False where the file system has no attributes of that kind.
bool setExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value);

/// An access control list in the kernel's form that grants `user` reading besides what owner, group and
/// others have.
std::string accessControlList(unsigned user);

/// Runs the program with two arguments.
Outcome ditto(const std::filesystem::path& source, const std::filesystem::path& destination,
              const std::function<void()>& prepare = {});

/// For the preparation of a program: it goes on as a user without privileges.
void becomeNobody();

}  // namespace test
