#pragma once

#include <optional>
#include <string>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Where the system attached a disk image. A plain value: it keeps nothing open and detaches nothing.
struct MountedImage {
  platform::URL url;                  ///< the mount point
  std::optional<std::string> device;  ///< the device entry of the mounted volume, if the system named one
};

/// Attaches the disk image read-only and without showing it to the user. Of several mounted volumes, the one
/// that the system lists last is returned. Throws `InstallerError::invalidDiskImage` with the tool's message
/// when it failed or its output names no mount point, in which case nothing is detached; or what the command
/// runner throws.
MountedImage attach(const platform::URL& image);

/// The last volume that the tool's output, a property list, names as mounted. Absent when there is none or
/// the output cannot be parsed.
std::optional<MountedImage> mountedImage(const platform::Data& output);

/// Detaches the image, in one attempt. Throws `InstallerError::invalidDiskImage` with the tool's message, or
/// what the command runner throws; the image is then still attached.
void detach(const MountedImage& image);

}  // namespace QuorinOstrevalUpdater
