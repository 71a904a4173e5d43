#pragma once

#include <functional>
#include <unordered_set>

#include "platform/processes/worker_pool.hpp"
#include "platform/security/bundle.hpp"
#include "platform/security/check_work.hpp"
#include "platform/security/resource_seal.hpp"

namespace platform {

/// Compares a bundle's items with its seal: every sealed item that is not optional must exist, unchanged, and
/// no other item may exist but those that the seal's rules omit or that may be added to a signed bundle.
/// Symbolic links are compared by their target and never followed. To be used once, by one thread.
class ResourceCheck {
 public:
  /// Checks the nested code `entry` of the directory. Called on the thread that runs the check; throws
  /// `SecurityError`.
  using NestedCheck =
      std::function<void(const Directory& directory, const ListedItem& entry, const SealedCode&)>;

  /// Requires that `bundle`, `work` and `pool` outlive this object; queued jobs share the seal. `work` may be
  /// shared with other checks on the same thread.
  ResourceCheck(const Bundle& bundle, std::shared_ptr<const ResourceSeal> seal, NestedCheck checkNested,
                CheckWork& work, WorkerPool& pool)
      : bundle_(bundle),
        seal_(std::move(seal)),
        checkNested_(std::move(checkNested)),
        work_(work),
        pool_(pool) {}

  /// Requires that this thread is the one that submits to the pool. Ensures, when it returns, that all of the
  /// above holds except for the contents of files, and that every nested check has returned. The contents are
  /// compared by jobs, so they are known to be intact once `finish` of the pool has returned. Throws
  /// `SecurityError`, and what a job has thrown.
  void run();

 private:
  void checkDirectory(const Directory& directory, const std::string& prefix, unsigned depth);
  void checkUnsealedDirectory(const Directory& directory, unsigned depth);
  bool isOmitted(const Directory& directory, const ListedItem& entry, const std::string& path);
  void checkItem(const Directory& directory, const ListedItem& entry, const std::string& path,
                 unsigned depth);
  void checkSealed(const Directory& directory, const ListedItem& entry, const SealedItem& item);
  void checkFile(const Directory& directory, const ListedItem& entry, const SealedFile& sealed);
  void requireComplete() const;

  const Bundle& bundle_;
  std::shared_ptr<const ResourceSeal> seal_;
  NestedCheck checkNested_;
  CheckWork& work_;
  WorkerPool& pool_;
  std::unordered_set<const SealedItem*> seen_;
};

}  // namespace platform
