#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/resource_seal.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"

namespace rehearse {
namespace {

using platform::ItemKind;
using Item = BundleTree::Item;

/// The paths, or the first of them and how many there are.
std::string listed(const std::vector<std::string>& paths) {
  constexpr std::size_t kMostNamed = 3;
  std::string text;
  for (std::size_t index = 0; index < std::min(paths.size(), kMostNamed); ++index)
    text += (index == 0 ? "" : ", ") + platform::quoted(paths[index]);
  if (paths.size() > kMostNamed)
    text += " and " + std::to_string(paths.size() - kMostNamed) + " more";
  return text;
}

/// Adds a finding about the items for which `applies` holds, if there are any.
void judgeItems(const BundleTree& tree, std::string_view key, const std::string& consequence,
                const std::function<bool(const Item&)>& applies, std::vector<Finding>& findings) {
  std::vector<std::string> paths;
  for (const Item* item : tree.items()) {
    if (applies(*item))
      paths.push_back(item->path.empty() ? tree.root().filename().native() : item->path);
  }
  if (!paths.empty())
    findings.push_back(finding(key, consequence + ": " + listed(paths) + "."));
}

/// An executable is for everyone what it is for its owner.
bool isClosedToOthers(const Item& item) {
  constexpr mode_t kRead = 04;
  constexpr mode_t kExecute = 01;
  if (item.kind == ItemKind::directory)
    return (item.permissions & (kRead | kExecute)) != (kRead | kExecute);
  const bool executable = (item.permissions & 0100U) != 0;
  return item.kind == ItemKind::file &&
         ((item.permissions & kRead) == 0 || (executable && (item.permissions & kExecute) == 0));
}

void judgePermissions(const BundleTree& tree, std::vector<Finding>& findings) {
  constexpr mode_t kWrite = 02;
  judgeItems(tree, "unreadable-for-others",
             "Other users of the Mac cannot read or run what is closed to everyone but its owner",
             isClosedToOthers, findings);
  judgeItems(
      tree, "writable-for-others", "Every user of the Mac can change these items",
      [](const Item& item) { return item.kind != ItemKind::link && (item.permissions & kWrite) != 0; },
      findings);
}

void judgeLinks(const BundleTree& tree, std::vector<Finding>& findings) {
  judgeItems(
      tree, "link-leaves-bundle",
      "Links lead out of the application, where users have something else or nothing, which no signature "
      "covers",
      [&tree](const Item& item) {
        return item.kind == ItemKind::link && tree.resolve(item.path).leavesBundle;
      },
      findings);
  judgeItems(
      tree, "link-broken", "Links lead to nothing",
      [&tree](const Item& item) {
        const BundleTree::Place place = tree.resolve(item.path);
        return item.kind == ItemKind::link && !place.leavesBundle && place.item == nullptr;
      },
      findings);
}

void judgeNames(const BundleTree& tree, std::vector<Finding>& findings) {
  for (const auto& [one, other] : tree.collisions())
    findings.push_back(finding("names-collide", platform::quoted(one) + " and " + platform::quoted(other) +
                                                    " are one item on the usual file system of a Mac: the "
                                                    "copy fails, or lacks one of them."));
}

bool isBareData(const BundleTree& tree, const Item& item) {
  return item.kind == ItemKind::file &&
         !platform::beginsLikeMachO(platform::CodeFile(
             platform::Entry::at(platform::URL::fileURLWithPath((tree.root() / item.path).native()))));
}

/// Code that is sealed as such and has no place for a signature in itself carries it in extended attributes,
/// with which images are not attached.
void judgeAttributes(const BundleTree& tree, std::vector<Finding>& findings) {
  constexpr std::uint64_t kLargestSeal = 32U << 20U;
  const Item* item = tree.resolve("Contents/_CodeSignature/CodeResources").item;
  if (item == nullptr || item->kind != ItemKind::file)
    return;
  std::vector<std::string> paths;
  try {
    const platform::CodeFile file(
        platform::Entry::at(platform::URL::fileURLWithPath((tree.root() / item->path).native())));
    const auto seal = platform::ResourceSeal::read(platform::Data(file.content(kLargestSeal)));
    for (const auto& [path, sealed] : seal.items) {
      const Item* code = tree.resolve("Contents/" + path).item;
      if (std::holds_alternative<platform::SealedCode>(sealed.content) && code != nullptr &&
          isBareData(tree, *code))
        paths.push_back(code->path);
    }
  } catch (const platform::ItemError&) {
    // The check of the signature refuses a damaged seal.
  } catch (const platform::PropertyListError&) {
    // The same.
  }
  if (!paths.empty())
    findings.push_back(
        finding("signature-in-attributes",
                "The signatures of these items are in extended attributes, which the image does "
                "not pass on, so that the update is refused: " +
                    listed(paths) + "."));
}

std::uint64_t sizeOf(const BundleTree& tree) {
  std::uint64_t size = 0;
  for (const Item* item : tree.items()) {
    if (item->kind == ItemKind::file)
      size += item->size;
  }
  return size;
}

std::string megabytes(std::uint64_t bytes) {
  std::array<char, 32> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "%.1f MB", static_cast<double>(bytes) / 1'000'000));
  return text.data();
}

}  // namespace

void judgeFiles(const BundleFacts& installed, const BundleFacts& offered, std::vector<Finding>& findings) {
  judgeNames(offered.tree, findings);
  judgePermissions(offered.tree, findings);
  judgeLinks(offered.tree, findings);
  judgeAttributes(offered.tree, findings);
  const std::string after = megabytes(sizeOf(offered.tree));
  const std::string before = megabytes(sizeOf(installed.tree));
  findings.push_back(finding("space-needed", "The new version takes " + after + ", the installed one " +
                                                 before + ": users need " + after +
                                                 " beside it until the update is complete."));
}

}  // namespace rehearse
