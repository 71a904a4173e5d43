#include "platform/security/resource_check.hpp"

#include "platform/security/at_place.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/slice_verification.hpp"

namespace platform {
namespace {

constexpr unsigned kDeepestDirectory = 100;

constexpr std::string_view kSignatureDirectory = "_CodeSignature";
constexpr std::string_view kTicket = "CodeResources";
constexpr std::string_view kReceipts = "_MASReceipt";

[[noreturn]] void refuse(const std::string& path, const std::string& what) {
  throw SecurityError(errSecCSBadResource, platform::quoted(path) + " " + what + ".");
}

void requireKind(const Directory& directory, const ListedItem& entry, ItemKind kind) {
  if (entry.kind != kind)
    refuse(directory.pathOf(entry.name), "was replaced by an item of another kind after signing");
}

void requireOrdinary(const Directory& directory, const ListedItem& entry) {
  if (entry.kind == ItemKind::special)
    refuse(directory.pathOf(entry.name), "is not a file, directory or symbolic link");
}

}  // namespace

void ResourceCheck::run() {
  atPlace(platform::quoted(bundle_.root.path()), errSecCSBadResource, [this] {
    checkDirectory(bundle_.content, {}, kDeepestDirectory);
    requireComplete();
  });
}

void ResourceCheck::checkDirectory(const Directory& directory, const std::string& prefix, unsigned depth) {
  if (depth == 0)
    refuse(directory.path(), "is nested too deeply");
  for (const ListedItem& entry : directory.entries()) {
    requireOrdinary(directory, entry);
    const std::string path = prefix + entry.name;
    // The signature's own files, and those that may be added to a signed bundle.
    if (path == kSignatureDirectory && entry.kind == ItemKind::directory)
      continue;
    if (path == kTicket && entry.kind != ItemKind::directory)
      continue;
    if (path == kReceipts && entry.kind == ItemKind::directory)
      checkUnsealedDirectory(directory.subdirectory(entry.name), depth - 1);
    else if (path != bundle_.executablePath)
      checkItem(directory, entry, path, depth);
  }
}

void ResourceCheck::checkUnsealedDirectory(const Directory& directory, unsigned depth) {
  if (depth == 0)
    refuse(directory.path(), "is nested too deeply");
  for (const ListedItem& entry : directory.entries()) {
    requireOrdinary(directory, entry);
    if (entry.kind == ItemKind::directory)
      checkUnsealedDirectory(directory.subdirectory(entry.name), depth - 1);
  }
}

bool ResourceCheck::isOmitted(const Directory& directory, const ListedItem& entry, const std::string& path) {
  constexpr std::uint64_t kStepsOfAByte = 32;  // take as long as parsing one byte
  work_.parse(bundle_.content.path(), path.size() * seal_->rules.size() / kStepsOfAByte);
  return seal_->rules.omits(path) &&
         !(entry.kind == ItemKind::file && beginsLikeMachO(CodeFile(directory.entry(entry.name))));
}

void ResourceCheck::checkItem(const Directory& directory, const ListedItem& entry, const std::string& path,
                              unsigned depth) {
  work_.parse(bundle_.content.path(), path.size());
  const auto item = seal_->items.find(sealKey(path));
  if (item != seal_->items.end()) {
    if (!seen_.insert(&item->second).second)
      refuse(directory.pathOf(entry.name), "exists twice");
    checkSealed(directory, entry, item->second);
  } else if (entry.kind == ItemKind::directory) {
    checkDirectory(directory.subdirectory(entry.name), path + "/", depth - 1);
  } else if (!isOmitted(directory, entry, path)) {
    refuse(directory.pathOf(entry.name), "was added after signing");
  }
}

void ResourceCheck::checkSealed(const Directory& directory, const ListedItem& entry, const SealedItem& item) {
  if (const auto* file = std::get_if<SealedFile>(&item.content)) {
    checkFile(directory, entry, *file);
  } else if (const auto* link = std::get_if<SealedLink>(&item.content)) {
    requireKind(directory, entry, ItemKind::link);
    if (directory.linkTarget(entry.name) != link->target)
      refuse(directory.pathOf(entry.name), "has another target than when it was signed");
  } else {
    checkNested_(directory, entry, std::get<SealedCode>(item.content));
  }
}

void ResourceCheck::checkFile(const Directory& directory, const ListedItem& entry, const SealedFile& sealed) {
  requireKind(directory, entry, ItemKind::file);
  const CheckWork::Comparison comparison = work_.ofFile(entry, sealed.algorithm, sealed.digest);
  if (comparison == CheckWork::Comparison::made)
    return;
  const bool hopeless = comparison == CheckWork::Comparison::hopeless;
  pool_.submit([seal = seal_, directory, name = entry.name, &sealed, hopeless] {
    // As a job, so that a failure of the earlier comparison is reported first.
    if (hopeless)
      refuse(directory.pathOf(name), "was changed after signing");
    atPlace(platform::quoted(directory.pathOf(name)), errSecCSBadResource, [&] {
      const CodeFile file(directory.entry(name));
      if (digestOfRange(file, {0, file.size()}, sealed.algorithm) != sealed.digest)
        refuse(file.path(), "was changed after signing");
    });
  });
}

void ResourceCheck::requireComplete() const {
  for (const auto& [path, item] : seal_->items) {
    if (!item.optional && !seen_.contains(&item))
      refuse(bundle_.content.pathOf(path), "is missing");
  }
}

}  // namespace platform
