#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/processes/process.hpp"

namespace rehearse {

/// A copy of the installation that this program belongs to: the updater, its tools and the trusted roots. In
/// `open`'s place is the judge of starts, which executes nothing.
class PrivatePrefix {
 public:
  /// Makes the copy at `directory`, which must not exist. `anchors` are files of further trusted roots, in
  /// PEM. `installation` is the path by which this process reaches it, which is another one in a private
  /// place. Throws `platform::Error` naming what cannot be copied.
  explicit PrivatePrefix(std::filesystem::path directory,
                         const std::vector<std::filesystem::path>& anchors = {},
                         const std::filesystem::path& installation = platform::installationPrefix().path());

  const std::filesystem::path& path() const { return directory_; }
  std::filesystem::path updater() const { return directory_ / "bin/QuorinOstrevalUpdater"; }
  /// "hdiutil", "ditto" or "open".
  std::filesystem::path tool(const std::string& name) const { return directory_ / "libexec/quorin" / name; }
  /// The directory of the trusted roots.
  std::filesystem::path anchors() const { return directory_ / "share/quorin/anchors"; }

  /// SHA-256 of the updater and its tools as they are installed, and of the trusted roots.
  std::string digest() const;

 private:
  std::filesystem::path directory_;
};

}  // namespace rehearse
