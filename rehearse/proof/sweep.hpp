#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "rehearse/proof/selection.hpp"
#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// What came of one point of a sweep.
struct Result {
  std::string point;  ///< empty for the name that was planned
  PointOutcome outcome = PointOutcome::notTried;
  std::vector<std::string> violations = {};  ///< a sentence each
  std::string state = {};                    ///< where that was looked at: as `DiskObserver` describes it
};

/// The directories of one worker: `home` and `temporary`, which is "/tmp" to it, each a file system in memory
/// that nobody else sees.
struct Place {
  std::filesystem::path home;
  std::filesystem::path temporary;
};

/// Tries a point and tells of it.
using Task = std::function<void(const Place&, const std::function<void(const Result&)>&)>;

struct PlannedPoint {
  std::string name;
  Task task;
  /// What is on the disk at this point, as one run showed, for points that leave just that; else empty. Of
  /// all points with the same state a few are run, see `run`.
  std::string state = {};
};

/// The points of a sweep that were selected, in order.
class PlannedSweep {
 public:
  /// Of the points with the same state, `samplesOfState` are run besides the first one: a state may not
  /// describe all that is on the disk.
  PlannedSweep(std::string name, Selection selection, bool isControl = false, std::size_t samplesOfState = 0)
      : name_(std::move(name)),
        selection_(selection),
        isControl_(isControl),
        samplesOfState_(samplesOfState) {}

  /// Counts a point, and returns whether it is to be added. Where `always`, it is part of each sample, as the
  /// first one is.
  bool selects(const std::string& point, bool always = false);
  void add(std::string point, Task task, std::string state = {}) {
    points_.push_back({std::move(point), std::move(task), std::move(state)});
  }

  const std::string& name() const { return name_; }
  const std::vector<PlannedPoint>& points() const { return points_; }
  std::uint64_t total() const { return total_; }
  bool isControl() const { return isControl_; }
  std::size_t samplesOfState() const { return samplesOfState_; }

 private:
  std::string name_;
  Selection selection_;
  bool isControl_;
  std::size_t samplesOfState_;
  std::vector<PlannedPoint> points_;
  std::uint64_t total_ = 0;
};

/// How points are tried at the same time.
struct Workshop {
  std::filesystem::path directory;  ///< exists and is not below "/tmp"
  unsigned workers = 1;
  std::function<void()> settle = {};  ///< what each worker does first, with its private mounts
};

/// Runs `body` in a process with a place below the workshop and returns its result. Throws `ProofRefused`
/// where the system does not grant private mounts or tracing, and `platform::Error` with what the process
/// failed from.
std::string inPlace(const Workshop& workshop, const std::function<std::string(const Place&)>& body);

/// Tries the points of a sweep in several processes, each in the order of the plan and then in that of the
/// states, and tells of each when it is known. Of those with the same state, the first is run and the sweep's
/// samples, and the state that such a run leaves is compared with the one that was observed, until one run
/// has confirmed it; the others are then recorded as observed, with its outcome. A task that throws or dies
/// is a violation.
Sweep run(const PlannedSweep& sweep, const Workshop& workshop,
          const std::function<void(const Point&)>& report);

}  // namespace rehearse
