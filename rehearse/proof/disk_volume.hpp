#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "rehearse/proof/recorded_disk.hpp"

namespace rehearse {

/// A file system on whose disks power is cut.
struct DiskFileSystem {
  std::string name;               ///< one of `kDiskFileSystems`
  std::vector<std::string> make;  ///< a program and its arguments
  std::uint64_t size;             ///< of a disk, in bytes, without what is to be on it
  std::string options;            ///< of each mount
  std::string namesFirst;         ///< further ones with which names reach the disk before content does
  /// Writes the file system's own records up to now, and no other file's content.
  void (*commit)(const std::filesystem::path& volume);
};

/// Throws `std::invalid_argument` for a name that is not in `kDiskFileSystems`.
const DiskFileSystem& diskFileSystem(const std::string& name);

/// Makes a file with an empty file system that has room for so many bytes. Throws `platform::Error`.
void makeDisk(const DiskFileSystem& fileSystem, const std::filesystem::path& file, std::uint64_t room);

/// Copies a disk's file, without space for what is zero. Throws `platform::Error`.
void copyDisk(const std::filesystem::path& from, const std::filesystem::path& to);

/// A disk in a file, mounted on "volume" in a directory as long as this exists.
class Volume {
 public:
  /// Mounts it with further options, which are empty or begin with a comma. `history` as `RecordedDisk` has
  /// it. Throws `platform::Error`.
  Volume(ReversibleFile& content, const std::filesystem::path& directory, const DiskFileSystem& fileSystem,
         const std::string& options, DiskHistory* history = nullptr);
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;
  ~Volume();

  const std::filesystem::path& mountPoint() const { return mountPoint_; }
  const RecordedDisk& disk() const { return disk_; }

  /// Puts everything on the disk. Throws `platform::Error`.
  void flush() const;
  /// What the file system's `commit` does.
  void commit() const { fileSystem_.commit(mountPoint_); }

 private:
  const DiskFileSystem& fileSystem_;
  std::filesystem::path mountPoint_;
  RecordedDisk disk_;
};

}  // namespace rehearse
