#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "rehearse/files/descendants.hpp"
#include "rehearse/stories/disk_meter.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint64_t kBlockUnit = 512;
constexpr auto kShortestInterval = std::chrono::milliseconds(10);
constexpr std::size_t kMostUses = 500;

/// What an item and everything below it occupies. What disappears meanwhile is not counted.
std::uint64_t occupiedBy(const fs::path& item) {
  struct stat status {};
  if (::lstat(item.c_str(), &status) != 0)
    return 0;
  auto blocks = static_cast<std::uint64_t>(status.st_blocks);
  std::error_code failure;
  if (S_ISDIR(status.st_mode))
    for (fs::recursive_directory_iterator entry(item, failure);
         !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure))
      if (::lstat(entry->path().c_str(), &status) == 0)
        blocks += static_cast<std::uint64_t>(status.st_blocks);
  return blocks * kBlockUnit;
}

/// What the files without a name occupy that a process has open.
std::uint64_t occupiedByNamelessFilesOf(pid_t process) {
  std::uint64_t bytes = 0;
  std::error_code failure;
  fs::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", failure);
  for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
    struct stat status {};
    if (::stat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 0)
      bytes += static_cast<std::uint64_t>(status.st_blocks) * kBlockUnit;
  }
  return bytes;
}

std::set<std::string> namesIn(const fs::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory))
    names.insert(entry.path().filename().native());
  return names;
}

std::uint64_t excess(std::uint64_t now, std::uint64_t before) {
  return now - std::min(now, before);
}

}  // namespace

DiskMeter::DiskMeter(fs::path applications, fs::path temporary)
    : applications_(std::move(applications)),
      temporary_(std::move(temporary)),
      names_(namesIn(applications_)),
      before_(occupied()),
      interval_(kShortestInterval) {}

void DiskMeter::measure(pid_t updater, Milliseconds time) {
  const auto begin = Clock::now();
  DiskUse use = occupied();
  for (const pid_t process : descendantsOf(updater))
    use.temporary += occupiedByNamelessFilesOf(process);
  use = {time, excess(use.besideTarget, before_.besideTarget), excess(use.temporary, before_.temporary)};
  greatest_.besideTarget = std::max(greatest_.besideTarget, use.besideTarget);
  greatest_.temporary = std::max(greatest_.temporary, use.temporary);
  uses_.push_back(use);
  if (uses_.size() > kMostUses)
    thinOut();
  const auto end = Clock::now();
  next_ = end + std::max<Clock::duration>(interval_, 10 * (end - begin));
}

DiskUse DiskMeter::occupied() const {
  DiskUse use{{}, 0, occupiedBy(temporary_)};
  for (const std::string& name : names_)
    use.besideTarget += occupiedBy(applications_ / name);
  return use;
}

void DiskMeter::thinOut() {
  std::size_t index = 0;
  std::erase_if(uses_, [&](const DiskUse&) { return index++ % 2 != 0; });
  interval_ *= 2;
}

}  // namespace rehearse
