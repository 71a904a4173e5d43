#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "rehearse/files/trees.hpp"

namespace test {

using rehearse::copyTree;
using rehearse::digestWhereLong;
using rehearse::Inventory;
using rehearse::inventory;
using rehearse::readFile;
using rehearse::writeFile;

/// A directory of the test, removed with everything in it at the end of its life, as far as it can be.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  /// The same below `parent`.
  explicit TemporaryDirectory(const std::filesystem::path& parent);
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// The entries in which two inventories differ, a line each; empty when they are the same.
std::string difference(const Inventory& expected, const Inventory& actual);

}  // namespace test
