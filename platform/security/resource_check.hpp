#pragma once

#include <functional>
#include <unordered_set>

#include "platform/processes/worker_pool.hpp"
#include "platform/security/bundle.hpp"
#include "platform/security/check_work.hpp"
#include "platform/security/resource_seal.hpp"

namespace platform {

/// Compares a bundle's items with its seal: every sealed item must be there and unchanged, and no other may
/// be. Links are compared by their text and never followed, wherever they lead.
class ResourceCheck {
 public:
  /// Checks the nested code `name` in the directory.
  using NestedCheck =
      std::function<void(const Directory& directory, const ListedItem& entry, const SealedCode&)>;

  /// Everything outlives the check, and the seal the steps too.
  ResourceCheck(const Bundle& bundle, std::shared_ptr<const ResourceSeal> seal, NestedCheck checkNested,
                CheckWork& work, WorkerPool& pool)
      : bundle_(bundle),
        seal_(std::move(seal)),
        checkNested_(std::move(checkNested)),
        work_(work),
        pool_(pool) {}

  /// Throws `SecurityError`; the content of files is compared in steps of the pool, which throw it too.
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
