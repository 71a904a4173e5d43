#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// An entry under a long name, which the builder takes as it is.
struct FatEntry {
  std::string name;  ///< ASCII
  std::string content = {};
  bool isFolder = false;
  std::vector<FatEntry> entries = {};
};

/// A FAT12 volume of the size of a floppy disk with these entries in its root folder.
std::string fatVolume(const std::vector<FatEntry>& entries);

}  // namespace test
