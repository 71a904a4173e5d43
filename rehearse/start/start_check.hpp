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

  auto operator<=>(const SystemVersion&) const =
      default;  // NOLINT(modernize-use-nullptr): the compiler's own text
};

/// "14", "14.0" or "14.0.1". Throws `platform::Error` for anything else.
SystemVersion systemVersion(const std::string& text);

/// "14.0" or "14.0.1".
std::string versionText(SystemVersion version);

/// What would have to be changed for an application to start.
enum class ObstacleKind {
  names,        ///< two names that are one
  information,  ///< Info.plist cannot be read
  executable,   ///< there is none, or it cannot be read
  permission,   ///< nobody may execute it
  interpreter,  ///< it is a script that not every Mac can run
  build,        ///< it is not a program for a Mac
  system,       ///< a later system is required
  library,      ///< a library cannot be loaded
};

struct Obstacle {
  ObstacleKind kind = ObstacleKind::executable;
  std::string sentence;
};

/// Judges without executing anything whether an application can start on that version of the system:
///  - Info.plist names an executable below Contents/MacOS, which exists and has permission to execute, and
///    does not require a later system.
///  - The executable is a Mach-O file or a script. A script's interpreter is one that every Mac has.
///  - A Mach-O file has code for arm64 or x86_64, each of which is built for this system or an earlier one.
///    Each finds every library that it and its libraries need, with the same architecture, in the bundle or
///    among those of the system; weakly linked ones may be missing. Whether the system has a library at one
///    of its own places cannot be known here and is assumed.
///  - No two names in the bundle are the same to a file system that ignores case and normalization.
///
/// Code that runs later is not judged: helper programs, plug-ins, what the application loads itself.
///
/// Returns why it cannot start, each reason once; empty when it can. Throws `platform::Error` when the bundle
/// cannot be read.
std::vector<Obstacle> obstaclesToStart(const std::filesystem::path& application, SystemVersion system);

}  // namespace rehearse
