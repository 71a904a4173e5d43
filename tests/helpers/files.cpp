#include "tests/helpers/files.hpp"

#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"

namespace fs = std::filesystem;

namespace test {

TemporaryDirectory::TemporaryDirectory() : TemporaryDirectory(fs::temp_directory_path()) {}

TemporaryDirectory::TemporaryDirectory(const fs::path& parent)
    : path_(parent / ("quorin-test-" + platform::UUID().uuidString())) {
  fs::create_directory(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  try {
    rehearse::removeItem(path_);
  } catch (const platform::Error&) {
    // A test that moved or mounted it away says so itself.
  }
}

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
