#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// What the superblock of an APFS volume says of it.
struct ApfsVolume {
  std::uint16_t role;
  bool isEncrypted;

  /// False for the volumes that the system keeps for starting up: Preboot, Recovery and VM.
  bool isForUsers() const noexcept;
};

/// The volumes of the container that is all of `container`, by their UUIDs in lower-case hexadecimal digits.
/// A volume that cannot be found or read is missing: only the file system's own reader decides whether the
/// container is damaged.
std::unordered_map<std::string, ApfsVolume> readApfsVolumes(const FileDescriptor& container);

}  // namespace platform::hdiutil
