#include <array>
#include <cerrno>
#include <string_view>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

/// The two renames that make up a replacement; undone in reverse order unless committed. Each returns 0, or
/// an error number with nothing changed. Nothing here allocates, so that every step taken is recorded.
class ReversibleSteps {
 public:
  ReversibleSteps() = default;
  ReversibleSteps(const ReversibleSteps&) = delete;
  ReversibleSteps& operator=(const ReversibleSteps&) = delete;
  ~ReversibleSteps() { takeBack(); }

  int rename(const Entry& from, const Entry& to) {
    return record(renameExclusively(from, to), {renameExclusively, &to, &from});
  }

  int exchange(const Entry& one, const Entry& other) {
    return record(exchangeNames(one, other), {exchangeNames, &one, &other});
  }

  /// Stops at the first step that cannot be undone: undoing an earlier one would move the wrong item.
  void takeBack() noexcept {
    while (count_ > 0 && inverses_.at(count_ - 1).run() == 0)
      --count_;
    count_ = 0;
  }

  void commit() noexcept { count_ = 0; }

 private:
  struct Inverse {
    int (*step)(const Entry&, const Entry&) = nullptr;
    const Entry* from = nullptr;
    const Entry* to = nullptr;

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
    throw SystemError(quoted(name) + " is not a valid name for a backup", EINVAL);
}

}  // namespace

void NSFileManager::replaceItemAt(const URL& target, const URL& replacement,
                                  const std::string& backupItemName, ItemReplacementOptions) const {
  requirePlainName(backupItemName);
  const Entry targetName = Entry::at(target);
  const Entry replacementName = Entry::at(replacement);
  const Entry backupName = targetName.directory.entry(backupItemName);

  syncTree(replacementName.directory.descriptor(), replacement);

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
  syncDirectory(targetName.directory.descriptor(), target.path());
  if (!areInOneDirectory(replacementName, targetName))
    syncDirectory(replacementName.directory.descriptor(), replacement.path());
  steps.commit();
}

}  // namespace platform
