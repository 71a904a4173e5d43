#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// A call of an undisturbed update.
struct RecordedCall {
  std::string name;  ///< see `CallNames`
  /// The same, counted among the calls that change files; empty where it changes none. Several threads copy
  /// and read files in an order that is not the same twice, so that which openat is a change is not either.
  std::string change = {};
  SystemCall call;
  /// What was on the disk after it, as `DiskObserver` describes it; empty where it changes no file, and so
  /// leaves what it found.
  std::string after = {};
};

/// The calls that an undisturbed run of a story makes, in order, without those that another run may not make.
/// Throws `ProofRefused` where the system does not allow what that needs, and `platform::Error` where it does
/// not go as the story does.
std::vector<RecordedCall> record(const Material& material, Story story, const Workshop& workshop);

}  // namespace rehearse
