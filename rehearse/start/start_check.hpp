#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace rehearse {

/// A version of the system, such as 14.0.
struct SystemVersion {
  unsigned major = 0;
  unsigned minor = 0;
  unsigned patch = 0;
  auto operator<=>(const SystemVersion&) const = default;
};

/// "14", "14.0" or "14.0.1". Throws `platform::Error` for anything else.
SystemVersion systemVersion(const std::string& text);

/// Judges without executing anything whether an application can start on that version of the system: the
/// executable exists and is executable, has a slice for arm64 or x86_64 that does not require a later system,
/// every library that it and its libraries load from the bundle is there with the same architectures (those
/// loaded weakly apart), none is loaded by an absolute path outside of the system, and no two names in the
/// bundle are the same to a file system that ignores case and normalization. Returns why it cannot start, a
/// sentence each; empty when it can. Throws `platform::Error` when the bundle cannot be read.
std::vector<std::string> obstaclesToStart(const std::filesystem::path& application, SystemVersion system);

}  // namespace rehearse
