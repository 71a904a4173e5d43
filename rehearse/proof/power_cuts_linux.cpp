#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <set>
#include <stdexcept>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proof/power_cuts.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uintmax_t kDiskSize = 24 << 20;

/// What a disk keeps that was not flushed.
enum class Metadata {
  whenever,  ///< what the system wrote of its own accord
  always,    ///< names and sizes at once, content only when it was flushed
};

struct Conditions {
  Story story;
  std::string options;  ///< of the mount
  Metadata metadata;
  bool withoutSync;  ///< the flush before the exchange is taken out
};

void runOrThrow(const std::string& program, const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram(program, arguments);
  if (outcome.exitStatus != 0)
    throw std::runtime_error(program + ": " + outcome.error);
}

/// A disk in a file, mounted as long as this lives.
class Disk {
 public:
  Disk(fs::path file, fs::path mountPoint, const std::string& options)
      : file_(std::move(file)), mountPoint_(std::move(mountPoint)) {
    fs::create_directories(mountPoint_);
    runOrThrow("/bin/mount", {"-t", "ext4", "-o", "loop" + options, file_.native(), mountPoint_.native()});
  }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;
  ~Disk() { ::umount2(mountPoint_.c_str(), MNT_DETACH); }

  const fs::path& file() const { return file_; }
  const fs::path& mountPoint() const { return mountPoint_; }

 private:
  fs::path file_;
  fs::path mountPoint_;
};

fs::path makeDiskFile(const fs::path& path) {
  writeFile(path, "");
  fs::resize_file(path, kDiskSize);
  runOrThrow("/sbin/mkfs.ext4", {"-q", "-F", path.native()});
  return path;
}

/// Makes the journal keep everything up to now, without writing any other file's content.
void commitMetadata(const fs::path& volume) {
  const platform::FileDescriptor file(
      ::open((volume / "ticker").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!file.isOpen() || ::write(file.get(), "x", 1) != 1 || ::fsync(file.get()) != 0)
    throw std::runtime_error("the disk could not be written");
}

class PowerCuts {
 public:
  PowerCuts(const Material& material, const Conditions& conditions, const Place& place, std::size_t every,
            const std::function<void(const Result&)>& report)
      : material_(material),
        conditions_(conditions),
        every_(every),
        report_(report),
        copy_(place.home / "copy"),
        temporary_(place.temporary),
        disk_(makeDiskFile(place.home / "disk"), place.home / "volume", conditions.options),
        home_(material, conditions.story, disk_.mountPoint(), place.temporary) {}

  void run() {
    home_.furnish();
    ::sync();
    const Ending ending =
        home_.run({.before = [this](const SystemCall& call) { return fateOf(call); },
                   .after = [this](const SystemCall& call, std::int64_t) { lookAfter(call); },
                   .timeLimit = std::chrono::hours(1)});
    if (ending.overran || ending.signal != 0)
      throw std::runtime_error("the run did not end by itself");
    cut("the end");
  }

 private:
  Fate fateOf(const SystemCall& call) {
    const bool isLeftOut = conditions_.withoutSync && call.byUpdater && isFlush(call);
    return {.kind = isLeftOut ? Fate::Kind::pretend : Fate::Kind::proceed};
  }

  /// The order of names is what the promise hangs on, so no renaming is left out.
  void lookAfter(const SystemCall& call) {
    if (!changesFiles(call))
      return;
    ++changes_;
    if (changes_ % every_ == 0 || isRename(call))
      cut(kindOf(call.number).name + " by " + call.program);
  }

  /// The power fails here. What is on the disk is looked at by a process of its own, as after a restart.
  void cut(const std::string& where) {
    if (conditions_.metadata == Metadata::always)
      commitMetadata(disk_.mountPoint());
    const std::string content = readFile(disk_.file());
    if (!seen_.insert(std::hash<std::string>()(content)).second)
      return;
    const pid_t child = ::fork();
    if (child == 0) {
      writeFile(copy_, content);
      report_(afterRestart(nameOf(conditions_.story) + ": power cut after change " +
                           std::to_string(changes_) + ", " + where));
      ::_exit(0);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
      continue;
    if (child < 0 || status != 0)
      throw std::runtime_error("a look at the disk failed");
  }

  Result afterRestart(const std::string& point) {
    Result result{point, "none", {}};
    try {
      // The application that the next update starts must have written its line before that is read.
      if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0 || ::unshare(CLONE_NEWNS) != 0 ||
          ::mount("tmpfs", temporary_.c_str(), "tmpfs", 0, "mode=0777") != 0 ||
          ::mount(temporary_.c_str(), "/tmp", nullptr, MS_BIND, nullptr) != 0)
        throw std::runtime_error("a mount namespace or the adoption of orphans is refused");
      const Disk disk(copy_, disk_.mountPoint(), conditions_.options);
      Home& home = home_;
      result.outcome = wordFor(home.standing());
      result.violations = losses(home);
      if (result.violations.empty())
        append(result.violations, nextUpdate(material_, home));
    } catch (const std::exception& failure) {
      result.violations.push_back(failure.what());
    }
    return result;
  }

  const Material& material_;
  Conditions conditions_;
  std::size_t every_;
  const std::function<void(const Result&)>& report_;
  fs::path copy_;
  fs::path temporary_;
  Disk disk_;
  Home home_;
  std::size_t changes_ = 0;
  std::set<std::size_t> seen_;
};

PlannedSweep sweepUnder(const Material& material, const std::string& name, const Conditions& conditions,
                        std::size_t every) {
  return {nameOf(conditions.story) + ", power cuts, " + name,
          {[&material, conditions, every](const Place& place, const auto& report) {
            PowerCuts(material, conditions, place, every, report).run();
          }},
          conditions.withoutSync};
}

}  // namespace

std::vector<PlannedSweep> powerCutSweeps(const Material& material, std::size_t every) {
  std::vector<PlannedSweep> sweeps;
  for (const Story story : {Story::update, Story::rollback, Story::revert}) {
    sweeps.push_back(
        sweepUnder(material, "as the system writes", {story, "", Metadata::whenever, false}, every));
    sweeps.push_back(sweepUnder(material, "names written first",
                                {story, ",data=writeback", Metadata::always, false}, every));
  }
  sweeps.push_back(sweepUnder(material, "names written first, no flush before the exchange",
                              {Story::update, ",data=writeback", Metadata::always, true}, every));
  return sweeps;
}

bool hasDisks(const Place& place) {
  try {
    const Disk disk(makeDiskFile(place.home / "disk"), place.home / "volume", "");
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace rehearse
