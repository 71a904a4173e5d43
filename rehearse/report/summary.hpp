#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "rehearse/record/rehearsal.hpp"

// What both reports tell first.

namespace rehearse {

/// Something that a person should know before publishing: a finding, a failed step, a broken promise.
struct Concern {
  Severity severity = Severity::note;
  std::string title;                  ///< such as "build does not rise"
  std::string sentence;               ///< what is found, and what users would see
  std::string advice;                 ///< what to do; may be empty
  std::vector<std::string> versions;  ///< the installed ones that it is about, each once
  std::vector<std::size_t> pairings;  ///< the places of theirs in the record
};

/// Everything of the kind, the most important first: a lost application, a broken promise, then by severity.
/// What several installed versions have in common comes once.
std::vector<Concern> concerns(const Rehearsal& rehearsal);

/// The verdict over all installed versions, such as "WOULD INSTALL: 2.0 (200) over all 4 installed versions".
std::string verdictOf(const Rehearsal& rehearsal);

/// What follows from it in a sentence, such as "Not ready to publish: 2 faults, 1 warning."
std::string judgementOf(const Rehearsal& rehearsal, const std::vector<Concern>& concerns);

/// How often each outcome is in a sweep, and how many points are at fault.
struct Counts {
  std::array<std::uint64_t, 6> outcomes{};  ///< by `PointOutcome`
  std::uint64_t faults = 0;
  std::uint64_t losses = 0;  ///< those of the faults that lost the application

  std::uint64_t of(PointOutcome outcome) const { return outcomes.at(static_cast<std::size_t>(outcome)); }
};

Counts countsOf(const Sweep& sweep);

/// "4,812 points: 3,849 previous, 958 new, 4 beside, 1 lost", and how many are not in this record.
std::string summaryOf(const Sweep& sweep);

/// What a control showed; for another sweep whether every promise was kept. A sentence.
std::string judgementOf(const Sweep& sweep);

}  // namespace rehearse
