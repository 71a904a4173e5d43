#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// The properties of an APFS volume in its superblock.
struct ApfsVolume {
  std::uint16_t role;
  bool isEncrypted;

  /// False for the volumes that the system reserves for itself: Preboot, Recovery and VM.
  bool isForUsers() const noexcept;
};

/// The volumes of the APFS container that fills the file `container`, by their UUIDs in lower-case
/// hexadecimal digits. Volumes that cannot be found or read are left out: only 7-Zip, which reads the file
/// system, decides whether the container is damaged. Throws `SystemError` when the file cannot be read.
std::unordered_map<std::string, ApfsVolume> readApfsVolumes(const FileDescriptor& container);

}  // namespace platform::hdiutil
