#include "tests/helpers/files.hpp"

namespace test {

std::string difference(const Inventory& expected, const Inventory& actual) {
  std::string lines;
  for (const auto& [path, description] : expected) {
    const auto found = actual.find(path);
    if (found == actual.end())
      lines += path + " is missing\n";
    else if (found->second != description)
      lines += path + " is " + found->second + " instead of " + description + "\n";
  }
  for (const auto& [path, description] : actual) {
    if (!expected.contains(path))
      lines += path + " is new: " + description + "\n";
  }
  return lines;
}

}  // namespace test
