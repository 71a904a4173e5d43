#include <fcntl.h>

#include <vector>

#include "platform/foundation/error.hpp"
#include "platform/foundation/file_descriptor.hpp"
#include "platform/foundation/file_manager.hpp"
#include "platform/foundation/file_rename.hpp"
#include "platform/foundation/file_sync.hpp"

namespace platform {
namespace {

/// Steps between names that are taken back in reverse order unless they are committed. Each returns 0 or an
/// error number, with nothing changed by that step.
class ReversibleSteps {
 public:
  ReversibleSteps() = default;
  ReversibleSteps(const ReversibleSteps&) = delete;
  ReversibleSteps& operator=(const ReversibleSteps&) = delete;
  ~ReversibleSteps() { takeBack(); }

  int rename(const DirectoryEntryName& from, const DirectoryEntryName& to) {
    return record(renameExclusively(from, to), {renameExclusively, to, from});
  }

  int exchange(const DirectoryEntryName& one, const DirectoryEntryName& other) {
    return record(exchangeNames(one, other), {exchangeNames, one, other});
  }

  void takeBack() noexcept {
    // Taking back is all that can be done here; the failure that led to it is the one to report.
    for (; !inverses_.empty(); inverses_.pop_back())
      static_cast<void>(inverses_.back().step(inverses_.back().from, inverses_.back().to));
  }

  void commit() noexcept { inverses_.clear(); }

 private:
  struct Inverse {
    int (*step)(const DirectoryEntryName&, const DirectoryEntryName&);
    const DirectoryEntryName& from;
    const DirectoryEntryName& to;
  };

  int record(int failure, const Inverse& inverse) {
    if (failure == 0)
      inverses_.push_back(inverse);
    return failure;
  }

  std::vector<Inverse> inverses_;
};

void requirePlainName(const std::string& name) {
  if (name.empty() || name == "." || name == ".." ||
      name.find_first_of(std::string_view("/\0", 2)) != std::string::npos)
    throw SystemError(quoted(name) + " is no name for a backup", EINVAL);
}

}  // namespace

void NSFileManager::replaceItemAt(const URL& target, const URL& replacement,
                                  const std::string& backupItemName, ItemReplacementOptions) const {
  requirePlainName(backupItemName);
  systemPath(target);
  systemPath(replacement);
  const FileDescriptor targetDirectory =
      FileDescriptor::open(target.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY);
  const FileDescriptor replacementDirectory =
      FileDescriptor::open(replacement.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY);
  const DirectoryEntryName targetName{targetDirectory, target.lastPathComponent()};
  const DirectoryEntryName replacementName{replacementDirectory, replacement.lastPathComponent()};
  const DirectoryEntryName backupName{targetDirectory, backupItemName};

  syncFileSystem(replacementDirectory, replacement.path());

  ReversibleSteps steps;
  int failure = steps.rename(replacementName, backupName);
  if (failure == 0)
    failure = steps.exchange(targetName, backupName);
  if (failure == ENOTSUP) {
    steps.takeBack();
    failure = steps.rename(targetName, backupName);
    if (failure == 0)
      failure = steps.rename(replacementName, targetName);
  }
  if (failure != 0)
    throw SystemError(quoted(target.path()) + " could not be replaced by " + quoted(replacement.path()),
                      failure);
  syncDirectory(targetDirectory, target.path());
  syncDirectory(replacementDirectory, replacement.path());
  steps.commit();
}

}  // namespace platform
