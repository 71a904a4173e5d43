#include <fcntl.h>
#include <linux/btrfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/power_cuts.hpp"
#include "rehearse/proof/recorded_disk.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint64_t kMebibyte = 1 << 20;
constexpr std::size_t kBlock = 4096;

struct FileSystem {
  std::string name;
  std::vector<std::string> make;  ///< a program and its arguments
  std::uint64_t size;             ///< of a disk, without the home's content
  std::string namesFirst;         ///< the options with which names reach the disk before content does
  /// Writes the file system's own records up to now, and no other file's content.
  void (*commit)(const fs::path& volume);
};

struct Conditions {
  const FileSystem& fileSystem;
  Story story;
  enum class Cut { asWritten, namesFirst, betweenFlushes } cut;
  bool withoutSync = false;  ///< the flush before the exchange is taken out
};

/// What had been written when a call ended.
struct Mark {
  std::string call;
  std::size_t writes;
  bool isSampled;
};

void runOrThrow(const std::string& program, const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram(program, arguments);
  if (outcome.exitStatus != 0)
    throw std::runtime_error(outcome.error.empty()
                                 ? program + " cannot be executed"
                                 : program + ": " + outcome.error.substr(0, outcome.error.find('\n')));
}

void flush(const fs::path& volume) {
  const platform::FileDescriptor root(::open(volume.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (::syncfs(root.get()) != 0)
    throw std::runtime_error("the disk could not be written");
}

/// The journals of ext4 and XFS keep all that precedes what a flushed file needs.
void commitByFlush(const fs::path& volume) {
  const platform::FileDescriptor file(
      ::open((volume / "ticker").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!file.isOpen() || ::write(file.get(), "x", 1) != 1 || ::fsync(file.get()) != 0)
    throw std::runtime_error("the disk could not be written");
}

/// On btrfs a flushed file's log has nothing else in it; a transaction has all names.
void commitTransaction(const fs::path& volume) {
  const platform::FileDescriptor root(::open(volume.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::uint64_t transaction = 0;
  const bool isNew = ::ioctl(root.get(), BTRFS_IOC_START_SYNC, &transaction) == 0;
  if (!isNew || ::ioctl(root.get(), BTRFS_IOC_WAIT_SYNC, &transaction) != 0)
    throw std::runtime_error("the disk could not be written");
}

const FileSystem& fileSystemOf(const std::string& name) {
  static const std::vector<FileSystem> kAll{
      {"ext4", {"/sbin/mkfs.ext4", "-q", "-F"}, 24 * kMebibyte, ",data=writeback", commitByFlush},
      {"xfs", {"/sbin/mkfs.xfs", "-q"}, 320 * kMebibyte, "", commitByFlush},
      {"btrfs", {"/sbin/mkfs.btrfs", "-q"}, 128 * kMebibyte, "", commitTransaction},
  };
  const auto found = std::ranges::find(kAll, name, &FileSystem::name);
  if (found == kAll.end())
    throw std::invalid_argument("There are no power cuts on " + name + ".");
  return *found;
}

fs::path makeDiskFile(const FileSystem& fileSystem, const fs::path& path, std::uint64_t content) {
  writeFile(path, "");
  fs::resize_file(path, fileSystem.size + content);
  std::vector<std::string> arguments(fileSystem.make.begin() + 1, fileSystem.make.end());
  arguments.push_back(path.native());
  runOrThrow(fileSystem.make.front(), arguments);
  return path;
}

/// A disk in a file, mounted as long as this lives. What is written meanwhile can be taken back later.
class Volume {
 public:
  Volume(ReversibleFile& content, const fs::path& directory, const FileSystem& fileSystem,
         const std::string& options)
      : mountPoint_(directory / "volume"), disk_(content, placeIn(directory)) {
    fs::create_directories(mountPoint_);
    runOrThrow("/bin/mount",
               {"-t", fileSystem.name, "-o", "loop" + options, disk_.path().native(), mountPoint_.native()});
  }
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;
  ~Volume() {
    if (::umount2(mountPoint_.c_str(), 0) != 0)
      ::umount2(mountPoint_.c_str(), MNT_DETACH);
  }

  const fs::path& mountPoint() const { return mountPoint_; }
  RecordedDisk& disk() { return disk_; }

 private:
  static fs::path placeIn(const fs::path& directory) {
    fs::path path = directory / "device";
    writeFile(path, "");
    return path;
  }

  fs::path mountPoint_;
  RecordedDisk disk_;
};

/// More than an update of this material and the one after it occupy at any time.
std::uint64_t spaceFor(const Material& material) {
  std::uint64_t application = 0;
  for (const auto& entry : fs::recursive_directory_iterator(material.oldBundle))
    application += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
  const auto image = std::max({fs::file_size(material.update.image), fs::file_size(material.broken.image),
                               fs::file_size(material.next.image)});
  return 4 * application + 8 * image;
}

/// Writes that a disk makes whole or not at all.
std::vector<DiskWrite> blocksOf(const std::vector<DiskWrite>& writes, std::size_t begin, std::size_t end) {
  std::vector<DiskWrite> blocks;
  for (std::size_t index = begin; index < end; ++index) {
    const auto& [offset, bytes] = writes[index];
    for (std::size_t done = 0, size = 0; done < bytes.size(); done += size) {
      size = std::min(bytes.size() - done, kBlock - (offset + done) % kBlock);
      blocks.push_back({offset + done, bytes.substr(done, size)});
    }
  }
  return blocks;
}

using KeptBlocks = std::vector<bool>;

/// What a disk may keep of several blocks, the same for the same name on each machine. All of them are not
/// among it.
std::map<KeptBlocks, std::string> partsOf(std::size_t blocks, const std::string& name) {
  std::seed_seq seed(name.begin(), name.end());
  std::mt19937 random(seed);
  const auto half = [&] {
    KeptBlocks kept(blocks);
    std::generate(kept.begin(), kept.end(), [&random] { return random() % 2 == 0; });
    return kept;
  };
  KeptBlocks last(blocks);
  last.back() = true;
  std::map<KeptBlocks, std::string> parts{{KeptBlocks(blocks), "none"}, {last, "the last"}};
  parts.emplace(half(), "a half");
  parts.emplace(half(), "another half");
  parts.erase(KeptBlocks(blocks, true));
  return parts;
}

/// Whether a point is in the sample.
using SampleTest = std::function<bool(const std::string& point)>;

class PowerCuts {
 public:
  PowerCuts(const Material& material, const Conditions& conditions, const Place& place, SampleTest samples,
            const std::function<void(const Result&)>& report)
      : material_(material),
        conditions_(conditions),
        options_(conditions.cut == Conditions::Cut::asWritten ? "" : conditions.fileSystem.namesFirst),
        place_(place),
        samples_(std::move(samples)),
        report_(report),
        content_(makeDiskFile(conditions.fileSystem, place.home / "disk", spaceFor(material))),
        home_(material, conditions.story, place.home / "volume", place.temporary) {}

  void run() {
    recordUpdate();
    content_.takeBack(0);
    if (conditions_.cut == Conditions::Cut::betweenFlushes)
      tryBetweenFlushes();
    else
      tryBehindCalls();
  }

 private:
  void recordUpdate() {
    Volume volume(content_, place_.home, conditions_.fileSystem, options_);
    home_.furnish();
    flush(volume.mountPoint());
    begin_ = volume.disk().writes();
    const Ending ending =
        home_.run({.before = [this](const SystemCall& call) { return fateOf(call); },
                   .after = [&](const SystemCall& call, std::int64_t) { lookAfter(call, volume); },
                   .timeLimit = std::chrono::minutes(10)});
    if (ending.overran || ending.signal != 0)
      throw std::runtime_error("the run did not end by itself");
    mark("the end", volume, true);
    history_ = volume.disk().takeHistory();
  }

  Fate fateOf(const SystemCall& call) const {
    const bool isLeftOut = conditions_.withoutSync && call.byUpdater && isFlush(call);
    return {.kind = isLeftOut ? Fate::Kind::pretend : Fate::Kind::proceed};
  }

  /// The order of names is what the promise hangs on, so no cut behind a renaming is left out. Between
  /// flushes the sample has the system's own and those of the sampled calls.
  void lookAfter(const SystemCall& call, Volume& volume) {
    const std::string name = names_.next(call);
    if (changesFiles(call))
      mark(name, volume,
           samples_(name) || (isRename(call) && conditions_.cut != Conditions::Cut::betweenFlushes));
  }

  void mark(const std::string& call, Volume& volume, bool isSampled) {
    if (isSampled && conditions_.cut != Conditions::Cut::asWritten)
      conditions_.fileSystem.commit(volume.mountPoint());
    marks_.push_back({call, volume.disk().writes(), isSampled});
  }

  void tryBehindCalls() {
    std::optional<std::size_t> latest;
    for (const Mark& mark : marks_)
      if (mark.isSampled && std::exchange(latest, mark.writes) != mark.writes) {
        makeWrites(mark.writes);
        tryRestart("behind " + mark.call);
      }
  }

  void tryBetweenFlushes() {
    std::map<std::string, std::size_t> flushes;
    std::size_t begin = begin_;
    for (const std::size_t end : history_.flushes) {
      if (end <= begin)
        continue;
      const auto mark = std::ranges::lower_bound(marks_, end, {}, &Mark::writes);
      const std::string& call = mark == marks_.end() ? marks_.back().call : mark->call;
      const std::string name = call + ", flush " + std::to_string(++flushes[call]);
      tryParts(begin, end, name);
      begin = end;
    }
  }

  void tryParts(std::size_t begin, std::size_t end, const std::string& name) {
    makeWrites(begin);
    const std::vector<DiskWrite> blocks = blocksOf(history_.writes, begin, end);
    for (const auto& [kept, part] : partsOf(blocks.size(), name)) {
      for (std::size_t index = 0; index < blocks.size(); ++index)
        if (kept[index])
          content_.write(blocks[index].offset, blocks[index].bytes);
      tryRestart(std::string(name).append(", ").append(part).append(" of the writes before it"));
      content_.takeBack(begin);
    }
  }

  void makeWrites(std::size_t end) {
    for (std::size_t index = content_.writes(); index < end; ++index)
      content_.write(history_.writes[index].offset, history_.writes[index].bytes);
  }

  /// Another process looks at the disk as after a restart, and leaves it as it was.
  void tryRestart(const std::string& point) {
    const pid_t child = ::fork();
    if (child == 0) {
      const std::size_t writes = content_.writes();
      const Result result = afterRestart(point);
      content_.takeBack(writes);
      report_(result);
      ::_exit(0);
    }
    if (child < 0 || waitFor(child) != 0)
      throw std::runtime_error("a look at the disk failed");
  }

  Result afterRestart(const std::string& point) {
    Result result{point};
    try {
      // The application that the next update starts must have written its line before that is read.
      if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0 || ::unshare(CLONE_NEWNS) != 0 ||
          ::mount("tmpfs", place_.temporary.c_str(), "tmpfs", 0, "mode=0777") != 0 ||
          ::mount(place_.temporary.c_str(), "/tmp", nullptr, MS_BIND, nullptr) != 0)
        throw std::runtime_error("a mount namespace or the adoption of orphans is refused");
      const Volume volume(content_, place_.home, conditions_.fileSystem, options_);
      home_.readAnew();
      result.outcome = outcomeOf(home_);
      result.violations = losses(home_);
      if (result.violations.empty())
        append(result.violations, nextUpdate(material_, home_));
    } catch (const std::exception& failure) {
      result.violations.emplace_back(failure.what());
    }
    return result;
  }

  const Material& material_;
  Conditions conditions_;
  std::string options_;
  Place place_;
  SampleTest samples_;
  const std::function<void(const Result&)>& report_;
  ReversibleFile content_;
  Home home_;
  CallNames names_{material_.updater.filename()};
  std::vector<Mark> marks_;
  std::size_t begin_ = 0;  ///< the writes before the update
  DiskHistory history_;
};

PlannedSweep sweepUnder(const Material& material, const Conditions& conditions, const std::string& name,
                        const Selection& selection) {
  PlannedSweep sweep(nameOf(conditions.story) + ", power cuts on " + conditions.fileSystem.name + ", " + name,
                     selection, conditions.withoutSync);
  const auto samples = [selection, name = sweep.name()](const std::string& point) {
    return selection.samples(name, point);
  };
  // One recorded update has all of them.
  const std::string cuts = "all cuts";
  if (sweep.selects(cuts))
    sweep.add(cuts, [&material, conditions, samples](const Place& place, const auto& report) {
      PowerCuts(material, conditions, place, samples, report).run();
    });
  return sweep;
}

}  // namespace

std::vector<PlannedSweep> powerCutSweeps(const Material& material, const std::string& fileSystem,
                                         const Selection& selection) {
  using Cut = Conditions::Cut;
  const FileSystem& kind = fileSystemOf(fileSystem);
  std::vector<PlannedSweep> sweeps;
  for (const Story story : {Story::update, Story::rollback, Story::revert}) {
    sweeps.push_back(sweepUnder(material, {kind, story, Cut::asWritten}, "as the system writes", selection));
    sweeps.push_back(sweepUnder(material, {kind, story, Cut::namesFirst}, "names written first", selection));
    sweeps.push_back(
        sweepUnder(material, {kind, story, Cut::betweenFlushes}, "writes lost between flushes", selection));
  }
  sweeps.push_back(sweepUnder(material, {kind, Story::update, Cut::namesFirst, true},
                              "names written first, no flush before the exchange", selection));
  return sweeps;
}

std::string obstacleToPowerCuts(const std::string& fileSystem, const Place& place) {
  const FileSystem& kind = fileSystemOf(fileSystem);
  try {
    ReversibleFile content(makeDiskFile(kind, place.home / "disk", 0));
    const Volume volume(content, place.home, kind, kind.namesFirst);
    return {};
  } catch (const std::exception& failure) {
    return "The system does not mount " + fileSystem + ": " + failure.what();
  }
}

}  // namespace rehearse
