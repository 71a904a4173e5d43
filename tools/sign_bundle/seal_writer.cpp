#include "tools/sign_bundle/seal_writer.hpp"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>

#include "platform/crypto/digest.hpp"
#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/worker_pool.hpp"
#include "tools/sign_bundle/sealing_rules.hpp"

namespace fs = std::filesystem;

namespace sign_bundle {
namespace {

using platform::Data;
using platform::PropertyList;

bool isNeverSealed(const BundleLayout& bundle, const std::string& path) {
  return path == "_CodeSignature" || path == "CodeResources" || path == "_MASReceipt" ||
         bundle.content.path() + "/" + path == bundle.mainExecutable.path();
}

/// Walks a bundle's content and applies both generations of rules.
class Survey {
 public:
  explicit Survey(const BundleLayout& bundle)
      : bundle_(bundle), rules_(currentRules()), olderRules_(olderRules()) {}

  std::vector<ContentItem> run() {
    walk({});
    std::sort(items_.begin(), items_.end(),
              [](const auto& one, const auto& other) { return one.path < other.path; });
    return std::move(items_);
  }

 private:
  void walk(const std::string& prefix) {
    for (const auto& entry : fs::directory_iterator(fs::path(bundle_.content.path()) / prefix)) {
      const std::string path = prefix + entry.path().filename().native();
      if (!isNeverSealed(bundle_, path))
        visit(entry, path);
    }
  }

  void visit(const fs::directory_entry& entry, const std::string& path) {
    const ResourceRule* rule = rules_.ruleFor(path);
    const bool nested = rule != nullptr && rule->nested;
    const bool directory = entry.is_directory() && !entry.is_symlink();
    if (directory && !(nested && isBundle(platform::URL::fileURLWithPath(entry.path().native())))) {
      walk(path + "/");
      return;
    }
    ContentItem item{.path = path};
    item.kind = entry.is_symlink() ? ItemKind::link : nested ? ItemKind::nestedCode : ItemKind::file;
    item.sealed = rule != nullptr && !rule->omit;
    item.optional = rule != nullptr && rule->optional;
    if (item.kind == ItemKind::file) {
      if (!entry.is_regular_file())
        throw platform::Error(platform::quoted(entry.path().native()) + " is neither a file nor a link.");
      const ResourceRule* olderRule = olderRules_.ruleFor(path);
      item.sealedByOlderRules = olderRule != nullptr && !olderRule->omit;
      item.optionalByOlderRules = olderRule != nullptr && olderRule->optional;
    }
    items_.push_back(std::move(item));
  }

  const BundleLayout& bundle_;
  RuleMatcher rules_;
  RuleMatcher olderRules_;
  std::vector<ContentItem> items_;
};

struct FileDigests {
  std::string sha1;
  std::string sha256;
};

/// Computes SHA-1 only if it is needed.
FileDigests digestFile(const platform::URL& file, bool withSha1) {
  constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
  const auto descriptor = platform::FileDescriptor::open(file, O_RDONLY | O_NOCTTY | O_NOFOLLOW);
  platform::Digest sha1(platform::DigestAlgorithm::sha1);
  platform::Digest sha256(platform::DigestAlgorithm::sha256);
  thread_local std::vector<char> piece(kPieceSize);
  while (const std::size_t count = descriptor.read(piece.data(), piece.size(), file.path())) {
    if (withSha1)
      sha1.update({piece.data(), count});
    sha256.update({piece.data(), count});
  }
  return {withSha1 ? sha1.finish() : std::string(), sha256.finish()};
}

std::vector<FileDigests> digestFiles(const BundleLayout& bundle, const std::vector<ContentItem>& items,
                                     SealedDigests digests) {
  std::vector<FileDigests> results(items.size());
  platform::WorkerPool pool;
  auto place = results.begin();
  for (const ContentItem& item : items) {
    FileDigests& result = *place++;
    if (item.kind != ItemKind::file || !(item.sealed || item.sealedByOlderRules))
      continue;
    pool.submit([&bundle, &item, &result, digests] {
      result = digestFile(bundle.content.appendingPathComponent(item.path),
                          item.sealedByOlderRules || digests != SealedDigests::sha256);
    });
  }
  pool.finish();
  return results;
}

PropertyList dataValue(const std::string& bytes) {
  return PropertyList(Data(bytes));
}

PropertyList fileEntry(const ContentItem& item, const FileDigests& file, SealedDigests digests) {
  if (digests == SealedDigests::sha1 && !item.optional)
    return dataValue(file.sha1);
  PropertyList::Dictionary entry;
  if (digests != SealedDigests::sha256)
    entry.emplace("hash", dataValue(file.sha1));
  if (digests != SealedDigests::sha1)
    entry.emplace("hash2", dataValue(file.sha256));
  if (item.optional)
    entry.emplace("optional", true);
  return PropertyList(std::move(entry));
}

PropertyList olderEntry(const ContentItem& item, const FileDigests& file) {
  if (!item.optionalByOlderRules)
    return dataValue(file.sha1);
  return PropertyList(
      PropertyList::Dictionary{{"hash", dataValue(file.sha1)}, {"optional", PropertyList(true)}});
}

PropertyList linkEntry(const BundleLayout& bundle, const ContentItem& item) {
  const std::string target = fs::read_symlink(bundle.content.appendingPathComponent(item.path).path());
  PropertyList::Dictionary entry{{"symlink", target}};
  if (item.optional)
    entry.emplace("optional", true);
  return PropertyList(std::move(entry));
}

PropertyList nestedEntry(const SealedCode& code) {
  PropertyList::Dictionary entry{{"cdhash", dataValue(code.codeDirectoryHash)}};
  if (!code.requirementText.empty())
    entry.emplace("requirement", code.requirementText);
  return PropertyList(std::move(entry));
}

}  // namespace

std::vector<ContentItem> surveyContent(const BundleLayout& bundle) {
  return Survey(bundle).run();
}

Data makeResourceSeal(const BundleLayout& bundle, const std::vector<ContentItem>& items,
                      const std::map<std::string, SealedCode>& nestedCode, SealedDigests digests) {
  const std::vector<FileDigests> files = digestFiles(bundle, items, digests);
  PropertyList::Dictionary sealed;
  PropertyList::Dictionary olderSealed;
  for (std::size_t index = 0; index < items.size(); ++index) {
    const ContentItem& item = items[index];
    if (item.sealedByOlderRules)
      olderSealed.emplace(item.path, olderEntry(item, files[index]));
    if (!item.sealed)
      continue;
    if (item.kind == ItemKind::link)
      sealed.emplace(item.path, linkEntry(bundle, item));
    else if (item.kind == ItemKind::nestedCode)
      sealed.emplace(item.path, nestedEntry(nestedCode.at(item.path)));
    else
      sealed.emplace(item.path, fileEntry(item, files[index], digests));
  }
  return platform::NSPropertyListSerialization::dataWithPropertyList(
      PropertyList(PropertyList::Dictionary{{"files", PropertyList(std::move(olderSealed))},
                                            {"files2", PropertyList(std::move(sealed))},
                                            {"rules", propertyListOf(olderRules())},
                                            {"rules2", propertyListOf(currentRules())}}));
}

}  // namespace sign_bundle
