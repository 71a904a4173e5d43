#pragma once

#include <optional>
#include <string>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Where the system attached a disk image. A plain value: it holds nothing open and detaches nothing.
struct MountedImage {
  platform::URL url;                  ///< the mount point
  std::optional<std::string> device;  ///< the device entry of the mounted volume, where the system named one
};

/// Attaches the disk image read-only and without showing it to the user. Of several mounted volumes, the one
/// that the system lists last is taken. Throws `InstallerError::invalidDiskImage` with the tool's message
/// when it failed or its answer is of no use, in which case nothing is detached; or what the command runner
/// threw.
MountedImage attach(const platform::URL& image);

/// The volume that the tool's answer, a property list, names as mounted; the last of several. Nothing when
/// the answer is of no use.
std::optional<MountedImage> mountedImage(const platform::Data& output);

/// Detaches the image, in one attempt. Throws `InstallerError::invalidDiskImage` with the tool's message, or
/// what the command runner threw; the image is then still attached.
void detach(const MountedImage& image);

}  // namespace QuorinOstrevalUpdater
