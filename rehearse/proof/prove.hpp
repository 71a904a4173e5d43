#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rehearse/proof/material.hpp"
#include "rehearse/proof/proof_refused.hpp"
#include "rehearse/record/rehearsal.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

enum class ProofKind {
  kills,      ///< the updater, a tool or all of them die
  faults,     ///< calls fail, or a file system breaks
  powerCuts,  ///< the power fails
  limits,     ///< space, descriptors, processes, memory and time are short
};

/// The file systems on whose disks power can be cut.
inline constexpr std::array<std::string_view, 3> kDiskFileSystems{"ext4", "xfs", "btrfs"};

struct ProofOptions {
  std::set<ProofKind> kinds;
  std::size_t every = 1;  ///< one point of so many is tried
  unsigned jobs = 0;      ///< how many at the same time; 0 for two a processor, since an update mostly waits
  Shard shard = {};
  /// For what is made meanwhile. It exists, on a file system with room for a copy of both applications, with
  /// power cuts also for the image and for what a file system records besides, and is not below "/tmp". The
  /// updates take place in memory.
  std::filesystem::path directory = {};
  /// Of the disks on which power is cut, of `kDiskFileSystems`.
  std::vector<std::string> fileSystems{"ext4"};
  /// Only the sweeps that have one of these words in their names; all without a word.
  std::vector<std::string> words = {};
};

/// An image of a release, and what is known of it.
struct ReleasedImage {
  std::filesystem::path image;
  std::string digest;  ///< SHA-256, in hexadecimal
  std::string version;
  std::string build;
  /// The application in it, as it is extracted: what must be at the target's path after the update.
  std::filesystem::path application;
};

/// The update of an installed application to a release.
struct ProvedRelease {
  /// A `PrivatePrefix` that nothing else uses meanwhile: in the place of its `open` is the judge of starts.
  std::filesystem::path prefix;
  SystemVersion system;             ///< that starts are judged for
  std::filesystem::path installed;  ///< the bundle that the user has
  std::string installedVersion;
  std::string installedBuild;
  std::string identifier;
  std::string team;
  ReleasedImage offered;
  std::optional<ReleasedImage> next;  ///< what is offered after a disturbed update; else the same once more
};

/// How far it is, told of after each point.
struct ProofProgress {
  const std::string& sweep;
  std::size_t done;
  std::size_t selected;  ///< the points of the sweep that are tried
  const Point& latest;
};

/// Tries the update at every point at which something can go wrong. Undisturbed, and with the start refused
/// or a byte of the new application changed right after the swap, the update must go as such an update goes;
/// else `platform::Error` says what is different. Throws `ProofRefused` where the system does not allow
/// private mounts or tracing. What it cannot try for another reason is a sweep with one point, `notTried`,
/// whose name is the reason and which has no violation. For a process with one thread and no other children.
std::vector<Sweep> prove(const ProofOptions& options, const ProvedRelease& release,
                         const std::function<void(const ProofProgress&)>& progress);

/// The same with what updates are made of.
std::vector<Sweep> prove(const ProofOptions& options, const Material& material,
                         const std::function<void(const ProofProgress&)>& progress);

}  // namespace rehearse
