#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rehearse/files/private_place.hpp"
#include "rehearse/stories/pairing.hpp"

namespace rehearse {

/// What to rehearse. Paths are absolute and without links.
struct Request {
  std::filesystem::path image;
  std::vector<std::filesystem::path> installed;
  std::optional<std::filesystem::path> plan;
  std::vector<std::filesystem::path> anchors;
  SystemVersion system;
  std::vector<std::string> options;  ///< for the record
  Shard shard;
  /// Called with what is rehearsed now.
  std::function<void(const std::string&)> progress;
  /// Called after the stories of each installed version of an update that succeeds, with what the proof of it
  /// needs; what it returns becomes part of the record.
  std::function<std::vector<Sweep>(const PrivatePrefix&, const OfferedRelease&, const Application& installed,
                                   const std::filesystem::path& directory)>
      prove;
};

/// Rehearses the update of each installed application, in `scratch`, of which the process makes its private
/// place: it must have one thread and no children. Throws `platform::Error` or `std::exception` with a
/// sentence when it cannot take place.
Rehearsal rehearseRelease(const Request& request, const PrivatePlace& place,
                          const std::filesystem::path& scratch);

}  // namespace rehearse
