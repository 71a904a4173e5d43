#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/proof/power_cuts.hpp"
#include "rehearse/proof/proof_refused.hpp"
#include "rehearse/proof/recorded_update.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::size_t kBlock = 4096;

std::string nameOf(PowerCut cut) {
  switch (cut) {
    case PowerCut::asWritten:
      return "as the system writes";
    case PowerCut::namesFirst:
      return "names written first";
    case PowerCut::betweenFlushes:
      return "writes lost between flushes";
  }
  return {};
}

std::string optionsOf(const PowerCutSweep& sweep) {
  return sweep.cut == PowerCut::asWritten ? "" : diskFileSystem(sweep.fileSystem).namesFirst;
}

std::string pointBehind(const std::string& call) {
  return "behind " + call;
}

/// Whether a call is in the sample. The order of names is what the promise hangs on, so no cut behind a
/// renaming is left out. Between flushes the sample has the system's own and those of the sampled calls.
bool samples(const PowerCutSweep& sweep, const Selection& selection, const SystemCall& call,
             const std::string& name) {
  if (sweep.cut == PowerCut::betweenFlushes)
    return selection.samples(sweep.name(), name);
  return isRename(call) || (!sweep.withoutFlush && selection.samples(sweep.name(), pointBehind(name)));
}

using KeptBlocks = std::vector<bool>;

/// A moment of a recorded update, and what the disk keeps of the writes behind it.
struct Cut {
  std::size_t begin = 0;
  std::size_t end = 0;
  KeptBlocks kept;    ///< of the writes up to `end`
  std::string state;  ///< see `PlannedPoint`
};

/// Calls `use` for each part of a write that a disk makes whole or not at all, with its place in the write.
void forBlocks(std::uint64_t offset, std::uint64_t size,
               const std::function<void(std::size_t begin, std::size_t count)>& use) {
  for (std::uint64_t done = 0, count = 0; done < size; done += count) {
    count = std::min<std::uint64_t>(size - done, kBlock - (offset + done) % kBlock);
    use(done, count);
  }
}

std::size_t blocksIn(const DiskHistory& history, std::size_t begin, std::size_t end) {
  std::size_t blocks = 0;
  for (std::size_t index = begin; index < end; ++index)
    forBlocks(history.offsetOf(index), history.sizeOf(index), [&](std::size_t, std::size_t) { ++blocks; });
  return blocks;
}

/// What a disk may keep of several blocks, with a name for each. On two machines that write as many blocks,
/// it is the same.
std::vector<std::pair<std::string, KeptBlocks>> partsOf(std::size_t blocks, const std::string& name) {
  std::seed_seq seed(name.begin(), name.end());
  std::mt19937 random(seed);
  const auto half = [&] {
    KeptBlocks kept(blocks);
    std::generate(kept.begin(), kept.end(), [&random] { return random() % 2 == 0; });
    return kept;
  };
  KeptBlocks last(blocks);
  last.back() = true;
  return {{"none", KeptBlocks(blocks)}, {"the last", last}, {"a half", half()}, {"another half", half()}};
}

/// A disk that goes forward through a recorded update. Operations throw `platform::Error`.
class ReplayedDisk {
 public:
  ReplayedDisk(const RecordedUpdate& update, const fs::path& file)
      : history_(update.history()), content_(copyOf(update, file)) {}

  std::size_t writes() const { return writes_; }
  /// From here on, what is done to the content can be taken back.
  ReversibleFile& content() { return content_; }

  void advance(std::size_t writes) {
    for (; writes_ < writes; ++writes_) {
      const DiskWrite write = history_.write(writes_);
      content_.write(write.offset, write.bytes);
      content_.keep();
    }
  }

  /// Writes what a cut leaves of the writes behind this moment.
  void writePart(const Cut& cut) {
    auto kept = cut.kept.begin();
    for (std::size_t index = cut.begin; index < cut.end; ++index) {
      const DiskWrite write = history_.write(index);
      forBlocks(write.offset, write.bytes.size(), [&](std::size_t begin, std::size_t count) {
        if (*kept++)
          content_.write(write.offset + begin, std::string_view(write.bytes).substr(begin, count));
      });
    }
  }

 private:
  static const fs::path& copyOf(const RecordedUpdate& update, const fs::path& file) {
    copyDisk(update.firstContent(), file);
    return file;
  }

  DiskHistory history_;
  ReversibleFile content_;
  std::size_t writes_ = 0;
};

/// Tries cuts of one recorded update. Each worker has a copy, whose disk is that worker's; it need not be
/// made anew for a cut behind the one before.
class CutTrials {
 public:
  CutTrials(PowerCutSweep sweep, const Material& material, std::unique_ptr<const RecordedUpdate> update)
      : sweep_(std::move(sweep)), material_(material), update_(std::move(update)) {}

  const RecordedUpdate& update() const { return *update_; }

  void run(const Cut& cut, const Place& place, const std::function<void(const Result&)>& report) {
    // A failure leaves a disk of which nothing is known.
    std::unique_ptr<ReplayedDisk> disk = std::move(disk_);
    if (disk == nullptr || disk->writes() > cut.begin)
      disk = std::make_unique<ReplayedDisk>(*update_, place.home / "disk");
    disk->advance(cut.begin);
    disk->writePart(cut);
    tryRestart(cut, disk->content(), place, report);
    disk->content().takeBack(0);
    disk_ = std::move(disk);
  }

 private:
  /// Another process looks at the disk as after a restart, and leaves it as it was.
  void tryRestart(const Cut& cut, ReversibleFile& content, const Place& place,
                  const std::function<void(const Result&)>& report) const {
    const pid_t child = ::fork();
    if (child == 0) {
      try {
        const std::size_t writes = content.writes();
        Result result = afterRestart(content, place);
        result.state = cut.state;
        content.takeBack(writes);
        report(result);
        ::_exit(0);
      } catch (...) {
        ::_exit(1);
      }
    }
    if (child < 0 || waitFor(child) != 0)
      throw platform::Error("A look at the disk failed.");
  }

  Result afterRestart(ReversibleFile& content, const Place& place) const {
    Result result;
    try {
      // The application that the next update starts must have written its line before that is read.
      if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0 || ::unshare(CLONE_NEWNS) != 0 ||
          ::mount("tmpfs", place.temporary.c_str(), "tmpfs", 0, "mode=0777") != 0 ||
          ::mount(place.temporary.c_str(), "/tmp", nullptr, MS_BIND, nullptr) != 0)
        throw platform::Error("A mount namespace or the adoption of orphans is refused.");
      const Volume volume(content, place.home, diskFileSystem(sweep_.fileSystem), optionsOf(sweep_));
      Home home(material_, sweep_.story, volume.mountPoint(), place.temporary);
      home.readAnew();
      result.outcome = outcomeOf(home);
      result.violations = losses(home);
      if (result.violations.empty())
        append(result.violations, nextUpdate(material_, home));
    } catch (const std::exception& failure) {
      result.violations.emplace_back(failure.what());
    }
    return result;
  }

  PowerCutSweep sweep_;
  const Material& material_;
  std::unique_ptr<const RecordedUpdate> update_;
  std::unique_ptr<ReplayedDisk> disk_;
};

/// The points of a sweep, whose tasks share the trials.
class Planning {
 public:
  Planning(PlannedSweep& sweep, std::shared_ptr<CutTrials> trials)
      : sweep_(sweep), trials_(std::move(trials)) {}

  /// Calls with no write between them leave the same disk. A control has its sampled calls only, so that it
  /// is known when all of its points were tried.
  void addBehindCalls(bool isControl) {
    for (const Mark& mark : trials_->update().marks())
      if (const std::string name = pointBehind(mark.call);
          (mark.isSampled || !isControl) && sweep_.selects(name, mark.isSampled))
        add(name, upTo(mark.writes));
  }

  void addBetweenFlushes() {
    const std::vector<Mark>& marks = trials_->update().marks();
    const DiskHistory history = trials_->update().history();
    std::map<std::string, std::size_t> flushes;
    std::size_t begin = trials_->update().begin();
    for (const std::size_t end : history.flushes()) {
      if (end <= begin)
        continue;
      const auto mark = std::ranges::lower_bound(marks, end, {}, &Mark::writes);
      const std::string& call = mark == marks.end() ? marks.back().call : mark->call;
      const std::string flush = call + ", flush " + std::to_string(++flushes[call]);
      addParts(begin, end, blocksIn(history, begin, end), flush);
      begin = end;
    }
  }

 private:
  /// Parts of few blocks may be the same.
  void addParts(std::size_t begin, std::size_t end, std::size_t blocks, const std::string& flush) {
    const auto parts = partsOf(blocks, flush);
    for (const auto& [part, kept] : parts) {
      const std::string name =
          std::string(flush).append(", ").append(part).append(" of the writes before it");
      if (!sweep_.selects(name, true))
        continue;
      if (const auto count = static_cast<std::size_t>(std::ranges::count(kept, true));
          count == 0 || count == blocks)
        add(name, upTo(count == 0 ? begin : end));
      else
        add(name, {begin, end, kept,
                   stateAfter(begin) + ", " +
                       std::ranges::find(parts, kept, &std::pair<std::string, KeptBlocks>::second)->first});
    }
  }

  /// States are tried in their order: forward.
  static std::string stateAfter(std::size_t writes) {
    constexpr std::size_t kDigits = 12;
    const std::string number = std::to_string(writes);
    return "after write " + std::string(kDigits - std::min(kDigits, number.size()), '0') + number;
  }

  static Cut upTo(std::size_t writes) { return {writes, writes, {}, stateAfter(writes)}; }

  void add(const std::string& name, Cut cut) {
    std::string state = cut.state;
    sweep_.add(
        name,
        [trials = trials_, cut = std::move(cut)](const Place& place, const auto& report) {
          trials->run(cut, place, report);
        },
        std::move(state));
  }

  PlannedSweep& sweep_;
  std::shared_ptr<CutTrials> trials_;
};

}  // namespace

std::string PowerCutSweep::name() const {
  return nameOf(story) + ", power cuts on " + fileSystem + ", " + nameOf(cut) +
         (withoutFlush ? ", no flush before the exchange" : "");
}

std::vector<PowerCutSweep> powerCutSweeps(const std::string& fileSystem, const std::vector<Story>& stories) {
  std::vector<PowerCutSweep> sweeps;
  for (const Story story : stories)
    for (const PowerCut cut : {PowerCut::asWritten, PowerCut::namesFirst, PowerCut::betweenFlushes})
      sweeps.push_back({fileSystem, story, cut});
  sweeps.push_back({fileSystem, Story::update, PowerCut::namesFirst, true});
  return sweeps;
}

PlannedSweep plan(const PowerCutSweep& sweep, const Material& material, const Selection& selection,
                  const Workshop& workshop) {
  // The same disk once more shows nothing more.
  PlannedSweep planned(sweep.name(), selection, sweep.withoutFlush, 0);
  const RecordedConditions conditions{
      .fileSystem = diskFileSystem(sweep.fileSystem),
      .options = optionsOf(sweep),
      .story = sweep.story,
      .withoutFlush = sweep.withoutFlush,
      .samples = [&](const SystemCall& call,
                     const std::string& name) { return samples(sweep, selection, call, name); },
      .commits = sweep.cut != PowerCut::asWritten};
  try {
    Planning planning(planned, std::make_shared<CutTrials>(
                                   sweep, material,
                                   std::make_unique<RecordedUpdate>(material, conditions, workshop,
                                                                    workshop.directory / "recorded")));
    if (sweep.cut == PowerCut::betweenFlushes)
      planning.addBetweenFlushes();
    else
      planning.addBehindCalls(sweep.withoutFlush);
  } catch (const ProofRefused&) {
    throw;
  } catch (const platform::Error& failure) {
    planned.add("the recorded update",
                [sentence = failure.localizedDescription()](const Place&, const auto& report) {
                  report({"", PointOutcome::notTried, {sentence}});
                });
  }
  return planned;
}

std::string obstacleToPowerCuts(const std::string& fileSystem, const Place& place) {
  const DiskFileSystem& kind = diskFileSystem(fileSystem);
  try {
    makeDisk(kind, place.home / "disk", 0);
    ReversibleFile content(place.home / "disk");
    const Volume volume(content, place.home, kind, kind.namesFirst);
    return {};
  } catch (const std::exception& failure) {
    return "The system does not mount " + fileSystem + ": " + failure.what();
  }
}

bool mountsCopies(const std::string& fileSystem, const Place& place) {
  const DiskFileSystem& kind = diskFileSystem(fileSystem);
  const fs::path disk = place.home / "disk";
  const fs::path copy = place.home / "copy of it";
  try {
    makeDisk(kind, disk, 0);
    copyDisk(disk, copy);
    ReversibleFile content(disk);
    ReversibleFile contentOfCopy(copy);
    const Volume volume(content, place.home / "first", kind, "");
    const Volume second(contentOfCopy, place.home / "second", kind, "");
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace rehearse
