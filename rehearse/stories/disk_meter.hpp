#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// Measures what an update occupies, beyond what was there before it, now and then.
class DiskMeter {
 public:
  using Clock = std::chrono::steady_clock;

  /// Takes what is in the two directories now as what was there before.
  DiskMeter(std::filesystem::path applications, std::filesystem::path temporary);

  /// A name has come to the directory of the applications. It is not opened after the construction, so that
  /// its openings tell of the updater.
  void addName(const std::string& name) { names_.insert(name); }

  /// When to measure next, so that measuring takes a tenth of the time at the most.
  Clock::time_point next() const { return next_; }
  void measureSoon() { next_ = {}; }

  /// Measures, at a time of the run. Files without a name that the updater or a tool has open count too.
  void measure(pid_t updater, Milliseconds time);

  /// In order of time, thinned out as they become many.
  const std::vector<DiskUse>& uses() const { return uses_; }
  /// The greatest of all that were measured.
  const DiskUse& greatest() const { return greatest_; }

 private:
  DiskUse occupied() const;
  void thinOut();

  std::filesystem::path applications_;
  std::filesystem::path temporary_;
  std::set<std::string> names_;  ///< all that were in the directory of the applications
  DiskUse before_;
  DiskUse greatest_;
  std::vector<DiskUse> uses_;
  Clock::time_point next_;
  Clock::duration interval_;
};

}  // namespace rehearse
