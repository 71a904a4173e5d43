#include <array>
#include <cerrno>
#include <string_view>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/files/file_rename.hpp"
#include "platform/files/file_sync.hpp"
#include "platform/files/item_place.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

/// The two steps between names that make up a replacement. They are taken back in reverse order unless they
/// are committed. Each returns 0 or an error number, with nothing changed by that step. Nothing here needs
/// memory, so that a step that was taken is always recorded.
class ReversibleSteps {
 public:
  ReversibleSteps() = default;
  ReversibleSteps(const ReversibleSteps&) = delete;
  ReversibleSteps& operator=(const ReversibleSteps&) = delete;
  ~ReversibleSteps() { takeBack(); }

  int rename(const DirectoryEntryName& from, const DirectoryEntryName& to) {
    return record(renameExclusively(from, to), {renameExclusively, &to, &from});
  }

  int exchange(const DirectoryEntryName& one, const DirectoryEntryName& other) {
    return record(exchangeNames(one, other), {exchangeNames, &one, &other});
  }

  /// Stops at the first step that cannot be taken back: those before it would move the wrong item.
  void takeBack() noexcept {
    while (count_ > 0 && inverses_.at(count_ - 1).run() == 0)
      --count_;
    count_ = 0;
  }

  void commit() noexcept { count_ = 0; }

 private:
  struct Inverse {
    int (*step)(const DirectoryEntryName&, const DirectoryEntryName&) = nullptr;
    const DirectoryEntryName* from = nullptr;
    const DirectoryEntryName* to = nullptr;

    int run() const noexcept { return step(*from, *to); }
  };

  int record(int failure, const Inverse& inverse) noexcept {
    if (failure == 0)
      inverses_.at(count_++) = inverse;
    return failure;
  }

  std::array<Inverse, 2> inverses_{};
  std::size_t count_ = 0;
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
  const ItemPlace targetPlace = placeOf(target);
  const ItemPlace replacementPlace = placeOf(replacement);
  const DirectoryEntryName targetName{targetPlace.directory, targetPlace.name};
  const DirectoryEntryName replacementName{replacementPlace.directory, replacementPlace.name};
  const DirectoryEntryName backupName{targetPlace.directory, backupItemName};

  syncFileSystem(replacementPlace.directory, replacement.path());

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
  syncDirectory(targetPlace.directory, target.path());
  syncDirectory(replacementPlace.directory, replacement.path());
  steps.commit();
}

}  // namespace platform
