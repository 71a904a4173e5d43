#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/foundation/error.hpp"
#include "rehearse/files/descendants.hpp"
#include "rehearse/files/file_notices.hpp"
#include "rehearse/stories/disk_meter.hpp"
#include "rehearse/stories/run_watch.hpp"

namespace rehearse {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = std::chrono::seconds(1);

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
                                                "swap",
                                                "verify after the swap",
                                                "detach",
                                                "write the status",
                                                "start",
                                                "clean up"};

/// The names the updater uses: of the copy before the swap, and of the directory for a tool's output, which
/// it removes once it knows that the tool has ended.
constexpr std::string_view kCopyPrefix = ".quorin-update-";
constexpr std::string_view kOutputPrefix = "QuorinCommand-";

class Watch {
 public:
  explicit Watch(const WatchedPlaces& places)
      : places_(places),
        meter_(places.applications, places.temporary),
        applications_(notices_.watch(places.applications, IN_OPEN | IN_CREATE | IN_MOVE)),
        downloads_(notices_.watch(places.image.parent_path(), IN_OPEN | IN_CLOSE_NOWRITE)),
        tools_(notices_.watch(places.tools, IN_OPEN)),
        temporary_(notices_.watch(places.temporary, IN_DELETE)) {
    seen_.phases.push_back({kNames[0], {}, {}});
  }

  int descriptor() const { return notices_.descriptor(); }
  DiskMeter& meter() { return meter_; }
  Milliseconds now() const { return std::chrono::duration_cast<Milliseconds>(Clock::now() - begin_); }

  /// Follows the run up to now.
  void follow() {
    const Stage before = stage_;
    const std::vector<FileNotice> notices = notices_.take();
    const Milliseconds time = now();
    for (const FileNotice& notice : notices)
      follow(notice, time);
    if (stage_ != before)
      meter_.measureSoon();
  }

  Observation result(int status, bool overran) {
    seen_.status = status;
    seen_.overran = overran;
    seen_.duration = now();
    seen_.phases.back().end = seen_.duration;
    seen_.diskUse = meter_.uses();
    seen_.greatestBesideTarget = meter_.greatest().besideTarget;
    seen_.greatestTemporary = meter_.greatest().temporary;
    return std::move(seen_);
  }

 private:
  void follow(const FileNotice& notice, Milliseconds time) {
    if (notice.directory == applications_)
      followApplications(notice, time);
    else if (notice.directory == tools_)
      followToolBegin(notice.name, time);
    else if (notice.directory == temporary_ && notice.name.starts_with(kOutputPrefix))
      followToolEnd(time);
    else if (notice.directory == downloads_ && notice.name == places_.image.filename())
      followImage(notice.events, time);
  }

  void followImage(std::uint32_t events, Milliseconds time) {
    if (stage_ == Stage::wait && (events & IN_OPEN) != 0)
      enter(Stage::digest, time);
    else if (stage_ == Stage::digest && (events & IN_CLOSE_NOWRITE) != 0)
      enter(Stage::verifyInstalled, time);
  }

  void followToolBegin(const std::string& tool, Milliseconds time) {
    if (tool == "hdiutil")
      enter(stage_ > Stage::attach ? Stage::detach : Stage::attach, time);
    else if (tool == "ditto")
      enter(Stage::copy, time);
    else if (tool == "open")
      enter(Stage::start, time);
  }

  void followToolEnd(Milliseconds time) {
    for (const Stage stage : {Stage::attach, Stage::copy, Stage::detach, Stage::start})
      if (stage_ == stage)
        return enter(static_cast<Stage>(static_cast<std::size_t>(stage) + 1), time);
  }

  void followApplications(const FileNotice& notice, Milliseconds time) {
    if (notice.name.empty()) {
      if ((notice.events & IN_OPEN) != 0)
        opened_ = time;
    } else if ((notice.events & IN_MOVED_FROM) != 0) {
      movedFrom_ = notice;
      if (stage_ == Stage::verifyCopy && notice.name.starts_with(kCopyPrefix)) {
        // The updater opens the directory just before it syncs, and then renames.
        enter(Stage::sync, std::max(opened_, seen_.phases.back().begin));
        enter(Stage::swap, time);
        offered_ = notice.name;
      }
    } else if ((notice.events & (IN_MOVED_TO | IN_CREATE)) != 0) {
      meter_.addName(notice.name);
      if ((notice.events & IN_MOVED_TO) != 0 && notice.cookie == movedFrom_.cookie)
        followRename(movedFrom_.name, notice.name, time);
    }
  }

  /// An exchange of names is two renames here, in either order.
  void followRename(const std::string& from, const std::string& to, Milliseconds time) {
    if (stage_ != Stage::swap || from != offered_)
      return;
    offered_ = to;
    seen_.wasSwapped = to == places_.target.filename();
    if (seen_.wasSwapped)
      enter(Stage::verifySwapped, time);
  }

  void enter(Stage stage, Milliseconds time) {
    if (stage == stage_)
      return;
    seen_.phases.back().end = time;
    seen_.phases.push_back({nameOf(stage), time, time});
    stage_ = stage;
  }

  /// A start before the swap, or after another, is that of the previous application.
  std::string nameOf(Stage stage) {
    if (stage != Stage::start)
      return kNames[static_cast<std::size_t>(stage)];
    const bool isOfPrevious = wasStarted_ || stage_ < Stage::swap;
    if (wasStarted_)
      seen_.phases.back().name = "put the previous back";
    wasStarted_ = true;
    return isOfPrevious ? "start the previous" : kNames[static_cast<std::size_t>(stage)];
  }

  const WatchedPlaces& places_;
  Clock::time_point begin_ = Clock::now();
  DiskMeter meter_;
  FileNotices notices_;
  int applications_;
  int downloads_;
  int tools_;
  int temporary_;
  Stage stage_ = Stage::wait;
  Milliseconds opened_{};  ///< when the directory of the applications was, last
  FileNotice movedFrom_;
  std::string offered_;  ///< the name of the new application during the swap
  bool wasStarted_ = false;
  Observation seen_;
};

/// Waits for notices, the end of a process, or a time.
void await(int notices, const platform::FileDescriptor& process, Clock::time_point until) {
  std::array<pollfd, 2> descriptors{{{notices, POLLIN, 0}, {process.get(), POLLIN, 0}}};
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  const int timeout =
      static_cast<int>(std::clamp<decltype(wait)>(wait, 0, Milliseconds(kLongestWait).count()));
  if (platform::uninterrupted([&] { return ::poll(descriptors.data(), descriptors.size(), timeout); }) < 0)
    throw platform::SystemError("The updater could not be awaited", errno);
}

}  // namespace

Observation watchRun(const std::function<pid_t()>& start, const WatchedPlaces& places,
                     std::chrono::seconds timeLimit) {
  Watch watch(places);
  const pid_t updater = start();
  const platform::FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, updater, 0)));
  if (!process.isOpen())
    throw platform::SystemError("The updater could not be awaited", errno);
  const auto deadline = Clock::now() + timeLimit;
  while (true) {
    await(watch.descriptor(), process, std::min(deadline, watch.meter().next()));
    int status = 0;
    const pid_t ended = ::waitpid(updater, &status, WNOHANG);
    if (ended < 0 && errno != EINTR)
      throw platform::SystemError("The updater could not be awaited", errno);
    watch.follow();
    const bool overran = ended <= 0 && Clock::now() >= deadline;
    if (ended > 0 || overran) {
      Observation result = watch.result(status, overran);
      endAllChildren();
      return result;
    }
    if (Clock::now() >= watch.meter().next())
      watch.meter().measure(updater, watch.now());
  }
}

}  // namespace rehearse
