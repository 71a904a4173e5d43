#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <thread>

#include "platform/foundation/error.hpp"
#include "rehearse/files/descendants.hpp"
#include "rehearse/stories/run_watch.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kBlockUnit = 512;
constexpr auto kInterval = std::chrono::milliseconds(1);
constexpr auto kDiskInterval = std::chrono::milliseconds(10);
constexpr std::size_t kMostSamples = 500;

/// The phases in the order of a run.
enum class Stage {
  wait,
  digest,
  verifyInstalled,
  attach,
  verifyImage,
  copy,
  verifyCopy,
  sync,
  swap,
  verifySwapped,
  detach,
  status,
  start,
  cleanUp,
};

constexpr std::array<const char*, 14> kNames = {"wait",
                                                "digest",
                                                "verify the installed application",
                                                "attach",
                                                "verify the image",
                                                "copy",
                                                "verify the copy",
                                                "sync",
                                                kSwapPhase,
                                                "verify after the swap",
                                                "detach",
                                                "write the status",
                                                "start",
                                                "clean up"};

std::optional<ino_t> inodeOf(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? std::optional(status.st_ino) : std::nullopt;
}

/// What the entries below a directory occupy. What disappears meanwhile is not counted.
std::uint64_t occupiedBelow(const fs::path& directory) {
  std::uint64_t bytes = 0;
  std::error_code failure;
  fs::recursive_directory_iterator entry(directory, failure);
  for (; !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure)) {
    struct stat status {};
    if (::lstat(entry->path().c_str(), &status) == 0)
      bytes += static_cast<std::uint64_t>(status.st_blocks) * kBlockUnit;
  }
  return bytes;
}

std::vector<fs::path> openFilesOf(pid_t process) {
  std::vector<fs::path> files;
  std::error_code failure;
  fs::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", failure);
  for (; !failure && entry != fs::directory_iterator(); entry.increment(failure))
    files.push_back(entry->path());
  return files;
}

/// What the files without a name occupy that a process has open.
std::uint64_t occupiedByNamelessFilesOf(pid_t process) {
  std::uint64_t bytes = 0;
  for (const fs::path& file : openFilesOf(process)) {
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 0)
      bytes += static_cast<std::uint64_t>(status.st_blocks) * kBlockUnit;
  }
  return bytes;
}

bool hasOpen(pid_t process, const fs::path& path) {
  return std::ranges::any_of(openFilesOf(process), [&](const fs::path& file) {
    std::error_code failure;
    return fs::read_symlink(file, failure) == path;
  });
}

/// Whether the process waits for written data to reach the disk.
bool isSyncing(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/syscall");
  long number = -1;
  return file >> number && (number == SYS_syncfs || number == SYS_fsync || number == SYS_fdatasync);
}

std::string toolOf(pid_t updater) {
  for (const pid_t child : childrenOf(updater)) {
    std::error_code failure;
    std::string name =
        fs::read_symlink("/proc/" + std::to_string(child) + "/exe", failure).filename().native();
    if (name == "hdiutil" || name == "ditto" || name == "open")
      return name;
  }
  return {};
}

class Watch {
 public:
  Watch(pid_t updater, const WatchedPlaces& places)
      : updater_(updater),
        places_(places),
        target_(inodeOf(places.target)),
        before_{{}, occupiedBelow(places.applications), occupiedBelow(places.temporary)} {
    seen_.phases.push_back({kNames[0], {}, {}});
  }

  void look() {
    const Stage stage = stageNow();
    if (stage != stage_)
      enter(stage);
    last_ = now();
    if (Clock::now() >= nextDiskUse_)
      lookAtDisk();
  }

  Observation result(int status, bool overran) {
    seen_.status = status;
    seen_.overran = overran;
    seen_.duration = now();
    seen_.phases.back().end = seen_.duration;
    return std::move(seen_);
  }

 private:
  Milliseconds now() const { return std::chrono::duration_cast<Milliseconds>(Clock::now() - begin_); }

  Stage stageNow() {
    const std::string tool = toolOf(updater_);
    if (tool == "hdiutil")
      return stage_ > Stage::attach ? Stage::detach : Stage::attach;
    if (tool == "ditto")
      return Stage::copy;
    if (tool == "open")
      return Stage::start;
    switch (stage_) {
      case Stage::wait:
        return fs::exists(places_.readyFile) ? Stage::digest : stage_;
      case Stage::digest:
        imageWasOpen_ = imageWasOpen_ || hasOpen(updater_, places_.image);
        return imageWasOpen_ && !hasOpen(updater_, places_.image) ? Stage::verifyInstalled : stage_;
      case Stage::attach:
        return Stage::verifyImage;
      case Stage::copy:
        return Stage::verifyCopy;
      case Stage::verifyCopy:
      case Stage::sync:
        if (inodeOf(places_.target) != target_)
          return Stage::verifySwapped;
        return isSyncing(updater_) ? Stage::sync : stage_;
      case Stage::detach:
        return Stage::status;
      case Stage::start:
        return Stage::cleanUp;
      default:
        return stage_;
    }
  }

  void enter(Stage stage) {
    const Milliseconds time = now();
    if (stage == Stage::verifySwapped) {
      // An instant between this look and the one before.
      seen_.phases.back().end = last_;
      seen_.phases.push_back({kNames[static_cast<std::size_t>(Stage::swap)], last_, time});
    } else {
      seen_.phases.back().end = time;
    }
    seen_.phases.push_back({kNames[static_cast<std::size_t>(stage)], time, time});
    stage_ = stage;
    lookAtDisk();
  }

  void lookAtDisk() {
    const auto begin = Clock::now();
    DiskUse use{now(), occupiedBelow(places_.applications), occupiedBelow(places_.temporary)};
    for (const pid_t process : descendantsOf(updater_))
      use.temporary += occupiedByNamelessFilesOf(process);
    use.besideTarget -= std::min(use.besideTarget, before_.besideTarget);
    use.temporary -= std::min(use.temporary, before_.temporary);
    seen_.greatestBesideTarget = std::max(seen_.greatestBesideTarget, use.besideTarget);
    seen_.greatestTemporary = std::max(seen_.greatestTemporary, use.temporary);
    seen_.diskUse.push_back(use);
    if (seen_.diskUse.size() > kMostSamples)
      thinOut();
    // Looking takes a tenth of the time at the most.
    const auto end = Clock::now();
    nextDiskUse_ = end + std::max<Clock::duration>(diskInterval_, 10 * (end - begin));
  }

  void thinOut() {
    std::size_t index = 0;
    std::erase_if(seen_.diskUse, [&](const DiskUse&) { return index++ % 2 != 0; });
    diskInterval_ *= 2;
  }

  pid_t updater_;
  const WatchedPlaces& places_;
  std::optional<ino_t> target_;
  DiskUse before_;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point nextDiskUse_ = begin_;
  Clock::duration diskInterval_ = kDiskInterval;
  Milliseconds last_{};
  Stage stage_ = Stage::wait;
  bool imageWasOpen_ = false;
  Observation seen_;
};

}  // namespace

Observation watchRun(pid_t updater, const WatchedPlaces& places, std::chrono::seconds timeLimit) {
  Watch watch(updater, places);
  const auto deadline = Clock::now() + timeLimit;
  while (true) {
    int status = 0;
    const pid_t ended = ::waitpid(updater, &status, WNOHANG);
    if (ended < 0 && errno != EINTR)
      throw platform::SystemError("The updater could not be awaited", errno);
    const bool overran = ended <= 0 && Clock::now() >= deadline;
    if (ended > 0 || overran) {
      Observation result = watch.result(status, overran);
      endAllChildren();
      return result;
    }
    watch.look();
    std::this_thread::sleep_for(kInterval);
  }
}

}  // namespace rehearse
