#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// Names the calls of a run so that the same call has the same name in each run on each machine, however the
/// processes take turns: "ditto: openat 17" is the 17th such call of all processes with that program.
class CallNames {
 public:
  /// `updater` is the name of the updater's program.
  explicit CallNames(std::string updater) : updater_(std::move(updater)) {}

  /// Names the next call, counted among those of its kind that are named at all. A process that the updater
  /// has made and that is not yet a tool is "QuorinOstrevalUpdater, child".
  std::string next(const SystemCall& call);

 private:
  std::string updater_;
  std::map<std::pair<std::string, long>, std::size_t> counts_;
};

}  // namespace rehearse
