#include "rehearse/findings/bundle_facts.hpp"

#include <algorithm>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/mach_o_format.hpp"
#include "platform/security/mach_o_linkage.hpp"
#include "platform/security/security_error.hpp"
#include "rehearse/findings/signature_facts.hpp"

namespace rehearse {
namespace {

using platform::CodeFile;
using platform::ItemKind;
using platform::PropertyList;
using platform::URL;

constexpr const char* kInformation = "Contents/Info.plist";
constexpr std::uint64_t kLargestInformation = 1U << 20U;

URL location(const BundleTree& tree, const BundleTree::Item& item) {
  return URL::fileURLWithPath((tree.root() / item.path).native());
}

/// Without one that can be read, `whyNotIdentified` says so.
void readInformation(BundleFacts& facts) {
  const BundleTree::Item* item = facts.tree.resolve(kInformation).item;
  if (item == nullptr || item->kind != ItemKind::file) {
    facts.whyNotIdentified = "has no Info.plist";
    return;
  }
  try {
    facts.information = platform::NSPropertyListSerialization::propertyListWithData(platform::Data(
        CodeFile(platform::Entry::at(location(facts.tree, *item))).content(kLargestInformation)));
    facts.hasInformation = true;
  } catch (const platform::Error&) {
    facts.whyNotIdentified = "has an Info.plist that cannot be read";
  }
}

void readName(BundleFacts& facts) {
  const auto read = [&](const char* key, std::string& value) {
    std::optional<std::string> text = facts.information.stringForKey(key);
    if (text)
      value = std::move(*text);
    else if (facts.whyNotIdentified.empty())
      facts.whyNotIdentified = std::string("has no ") + key;
  };
  read("CFBundleIdentifier", facts.name.identifier);
  read("CFBundleShortVersionString", facts.name.version);
  read("CFBundleVersion", facts.name.build);
}

/// What the code of a Mac's architectures requires; the least, since it starts where one of them does.
std::optional<SystemVersion> leastSystemOf(const CodeFile& file,
                                           const std::vector<platform::MachOSlice>& slices) {
  std::optional<SystemVersion> least;
  for (const platform::MachOSlice& slice : slices) {
    if (slice.architecture != "arm64" && slice.architecture != "x86_64")
      continue;
    for (const platform::MachOTarget& target : platform::readMachOLinkage(file, slice.range).targets) {
      const SystemVersion version{target.major, target.minor, target.patch};
      if (target.platform == platform::mach_o::build_platform::kMacOS)
        least = std::min(least.value_or(version), version);
    }
  }
  return least;
}

std::optional<platform::Directory> signatureDirectory(const BundleTree& tree) {
  const BundleTree::Item* item = tree.resolve("Contents/_CodeSignature").item;
  if (item == nullptr || item->kind != ItemKind::directory)
    return std::nullopt;
  return platform::Directory::open(location(tree, *item), platform::Directory::Links::refused);
}

void readExecutable(BundleFacts& facts) {
  const auto name = facts.information.stringForKey("CFBundleExecutable");
  const BundleTree::Item* item = facts.tree.resolve("Contents/MacOS/" + name.value_or("")).item;
  facts.whyNotSigned = "Its executable is missing.";
  if (!name || item == nullptr || item->kind != ItemKind::file)
    return;
  facts.executable = item;
  const URL executable = location(facts.tree, *item);
  try {
    const CodeFile file(platform::Entry::at(executable));
    if (const auto slices = platform::readMachO(file)) {
      facts.architectures.emplace();
      for (const platform::MachOSlice& slice : *slices)
        facts.architectures->insert(slice.architecture);
      facts.leastSystem = leastSystemOf(file, *slices);
    }
    facts.signature = readSignatureFacts(executable, signatureDirectory(facts.tree));
    facts.whyNotSigned.clear();
  } catch (const platform::FormatError& error) {
    facts.whyNotSigned = platform::sentence(platform::quoted(item->path) + " is not validly signed", error);
  } catch (const platform::SecurityError& error) {
    facts.whyNotSigned = error.localizedDescription();
  }
}

void readLeastSystem(BundleFacts& facts) {
  try {
    const auto text = facts.information.stringForKey("LSMinimumSystemVersion");
    if (text)
      facts.leastSystem = std::max(facts.leastSystem.value_or(SystemVersion()), systemVersion(*text));
  } catch (const platform::Error&) {
    // What is not a version requires nothing.
  }
}

}  // namespace

BundleFacts readFacts(const std::filesystem::path& application, const std::string& source) {
  BundleFacts facts{.name = {},
                    .whyNotIdentified = {},
                    .tree = BundleTree(application),
                    .hasInformation = false,
                    .information = PropertyList(PropertyList::Dictionary()),
                    .executable = nullptr,
                    .architectures = {},
                    .leastSystem = {},
                    .signature = {},
                    .whyNotSigned = {}};
  facts.name.bundleName = facts.tree.root().filename().native();
  facts.name.source = source;
  readInformation(facts);
  readName(facts);
  readExecutable(facts);
  readLeastSystem(facts);
  return facts;
}

}  // namespace rehearse
