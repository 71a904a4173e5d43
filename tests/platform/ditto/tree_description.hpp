#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/helpers/program.hpp"

namespace test {

/// A tree with all that a copy has to keep of every entry: type, mode, owner, time, extended attributes,
/// access control lists, content with its holes, link text, and which names share one file. What a list of
/// the entries does not show of it is in the hash at the end.
std::string describeTree(const std::filesystem::path& root);

void setModificationTime(const std::filesystem::path& path, long seconds, long nanoseconds);

/// False where the file system has no attributes of that kind.
bool setExtendedAttribute(const std::filesystem::path& path, const std::string& name,
                          const std::string& value);

/// An access control list in the kernel's form that grants `user` reading besides what owner, group and
/// others have.
std::string accessControlList(unsigned user);

/// Runs the program with two arguments, as `runProgram` does.
Outcome ditto(const std::filesystem::path& source, const std::filesystem::path& destination,
              const std::function<void()>& prepare = {});

/// For the preparation of a program: it goes on as a user without privileges.
void becomeNobody();

}  // namespace test
