#include "rehearse/proof/recorded_update.hpp"

#include <algorithm>
#include <sstream>
#include <utility>

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/system_calls.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// More than an update of this material and the one after it occupy at any time.
std::uint64_t spaceFor(const Material& material) {
  std::uint64_t application = 0;
  for (const auto& entry : fs::recursive_directory_iterator(material.oldBundle))
    application += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
  const auto image = std::max({fs::file_size(material.update.image), fs::file_size(material.broken.image),
                               fs::file_size(material.next.image)});
  return 4 * application + 8 * image;
}

void requireThatItWent(Story story, const Ending& ending, const Home& home) {
  std::string complaint;
  for (const std::string& contradiction : home.contradictions(ending))
    complaint += " " + contradiction;
  if (ending.overran || ending.exitStatus != (story == Story::update ? 0 : 1) || !complaint.empty())
    throw platform::Error("The recorded " + nameOf(story) + " does not go as expected: " +
                          (ending.overran ? "It does not end." : ending.error) + complaint);
}

/// The marks of a run, one a line behind what had been written before it.
class Marks {
 public:
  Marks(const RecordedConditions& conditions, const Volume& volume, std::string updater)
      : conditions_(conditions), volume_(volume), names_(std::move(updater)) {
    text_ << volume.disk().writes() << '\n';
  }

  void lookAfter(const SystemCall& call) {
    const std::string name = names_.next(call);
    add(name, std::exchange(isFirst_, false) || conditions_.samples(call, name));
  }
  void add(const std::string& call, bool isSampled) {
    if (isSampled && conditions_.commits)
      volume_.commit();
    text_ << volume_.disk().writes() << ' ' << isSampled << ' ' << call << '\n';
  }

  std::string text() const { return text_.str(); }

 private:
  const RecordedConditions& conditions_;
  const Volume& volume_;
  CallNames names_;
  bool isFirst_ = true;
  std::ostringstream text_;
};

}  // namespace

RecordedUpdate::Directory::Directory(fs::path name) : path(std::move(name)) {
  fs::create_directory(path);
}

RecordedUpdate::Directory::~Directory() {
  platform::bestEffort([this] { removeItem(path); });
}

RecordedUpdate::RecordedUpdate(const Material& material, const RecordedConditions& conditions,
                               const Workshop& workshop, fs::path directory)
    : directory_(std::move(directory)) {
  readMarks(inPlace(workshop, [&](const Place& place) { return record(material, conditions, place); }));
}

std::string RecordedUpdate::record(const Material& material, const RecordedConditions& conditions,
                                   const Place& place) const {
  const fs::path disk = place.home / "disk";
  makeDisk(conditions.fileSystem, disk, spaceFor(material));
  copyDisk(disk, firstContent());
  ReversibleFile content(disk);
  DiskHistory history = DiskHistory::create(historyFile());
  const Volume volume(content, place.home, conditions.fileSystem, conditions.options, &history);
  Home home(material, conditions.story, volume.mountPoint(), place.temporary);
  home.furnish();
  volume.flush();
  Marks marks(conditions, volume, material.updater.filename());
  const auto fateOf = [&](const SystemCall& call) -> Fate {
    const bool isLeftOut = conditions.withoutFlush && call.byUpdater && isFlush(call);
    return {.kind = isLeftOut ? Fate::Kind::pretend : Fate::Kind::proceed};
  };
  const Ending ending =
      home.run({.before = fateOf,
                .calls = callsThatChangeFiles(),
                .after = [&](const SystemCall& call, std::int64_t) { marks.lookAfter(call); },
                .wantsAfter = changesFiles,
                .timeLimit = std::chrono::minutes(10)});
  marks.add("the end", true);
  requireThatItWent(conditions.story, ending, home);
  return marks.text();
}

void RecordedUpdate::readMarks(const std::string& text) {
  std::istringstream lines(text);
  lines >> begin_;
  for (Mark mark;
       lines >> mark.writes >> mark.isSampled && lines.get() == ' ' && std::getline(lines, mark.call);)
    marks_.push_back(mark);
}

}  // namespace rehearse
