#include "rehearse/start/start_check.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <optional>

#include "platform/formats/property_list.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/mach_o_format.hpp"
#include "platform/security/mach_o_linkage.hpp"
#include "rehearse/start/bundle_tree.hpp"
#include "rehearse/start/load_check.hpp"
#include "rehearse/start/script_check.hpp"

namespace rehearse {
namespace {

using platform::CodeFile;
using platform::ItemKind;
using platform::MachOLinkage;
using platform::MachOSlice;
using platform::MachOTarget;
using platform::PropertyList;

namespace build_platform = platform::mach_o::build_platform;

constexpr const char* kInformation = "Contents/Info.plist";
constexpr const char* kCode = "Contents/MacOS";
constexpr std::uint64_t kLargestInformation = 1U << 20U;

constexpr std::string_view kArm64 = "arm64";
constexpr std::string_view kX86 = "x86_64";
/// The first system on the Macs that run code for arm64.
constexpr SystemVersion kFirstOnArm64{11, 0, 0};

/// True for a path of plain names only, which cannot leave the directory that it is relative to.
bool staysBelow(const std::string& path) {
  const auto parts = std::filesystem::path(path);
  return !path.empty() && path.back() != '/' && parts.is_relative() &&
         std::ranges::none_of(parts, [](const auto& part) { return part == "." || part == ".."; });
}

class StartCheck {
 public:
  StartCheck(const std::filesystem::path& application, SystemVersion system)
      : tree_(application), system_(system) {}

  std::vector<std::string> obstacles() {
    for (const auto& [one, other] : tree_.collisions())
      add("On the usual file system of a Mac " + platform::quoted(one) + " and " + platform::quoted(other) +
          " are one item.");
    if (const std::optional<PropertyList> information = readInformation()) {
      checkLeastSystem(*information);
      if (const BundleTree::Item* executable = findExecutable(*information))
        checkExecutable(*executable);
    }
    return std::move(obstacles_);
  }

 private:
  void add(std::string sentence) { obstacles_.push_back(std::move(sentence)); }

  CodeFile open(const BundleTree::Item& item) const {
    return CodeFile(platform::Entry::at(platform::URL::fileURLWithPath((tree_.root() / item.path).native())));
  }

  std::optional<PropertyList> readInformation() {
    const BundleTree::Item* item = tree_.resolve(kInformation).item;
    if (item == nullptr || item->kind != ItemKind::file) {
      add("Its " + platform::quoted(kInformation) + " is missing.");
      return std::nullopt;
    }
    const std::string bytes = open(*item).content(kLargestInformation);
    try {
      return platform::NSPropertyListSerialization::propertyListWithData(platform::Data(bytes));
    } catch (const platform::PropertyListError& error) {
      add(platform::sentence("Its " + platform::quoted(kInformation) + " cannot be read", error));
      return std::nullopt;
    }
  }

  void checkLeastSystem(const PropertyList& information) {
    const auto text = information.stringForKey("LSMinimumSystemVersion");
    if (!text)
      return;
    try {
      if (systemVersion(*text) > system_)
        add("It requires macOS " + *text + ", and this is macOS " + versionText(system_) + ".");
    } catch (const platform::Error&) {
      // The system takes no notice of what is not a version either.
    }
  }

  const BundleTree::Item* findExecutable(const PropertyList& information) {
    const auto name = information.stringForKey("CFBundleExecutable");
    if (!name) {
      add("Its Info.plist names no executable.");
      return nullptr;
    }
    if (!staysBelow(*name)) {
      add("The executable " + platform::quoted(*name) + " is not in its Contents/MacOS.");
      return nullptr;
    }
    const BundleTree::Place place = tree_.resolve(std::string(kCode) + "/" + *name);
    if (place.leavesBundle) {
      add("Its executable " + platform::quoted(*name) + " is a link out of the application.");
      return nullptr;
    }
    if (place.item == nullptr) {
      add("Its executable " + platform::quoted(*name) + " is missing.");
      return nullptr;
    }
    if (place.item->kind != ItemKind::file) {
      add("Its executable " + platform::quoted(*name) + " is not a file.");
      return nullptr;
    }
    if ((place.item->permissions & 0111U) == 0) {
      add("Its executable " + platform::quoted(*name) + " has no permission to execute.");
      return nullptr;
    }
    return place.item;
  }

  void checkExecutable(const BundleTree::Item& executable) {
    const CodeFile file = open(executable);
    try {
      if (const auto slices = platform::readMachO(file)) {
        checkSlices(executable, file, *slices);
        return;
      }
    } catch (const platform::FormatError& error) {
      add(platform::sentence(
          "Its executable " + platform::quoted(executable.path) + " is not a valid Mach-O file", error));
      return;
    }
    if (const auto obstacle =
            obstacleToScript(file.read(0, std::min<std::uint64_t>(file.size(), kLongestFirstLine)), system_))
      add(*obstacle);
  }

  /// Code for arm64 does not matter to a system from before its Macs, unless there is no other.
  bool isUsed(const MachOSlice& slice, const std::vector<MachOSlice>& all) const {
    const bool isOnly = std::ranges::find(all, kX86, &MachOSlice::architecture) == all.end();
    return slice.architecture == kX86 ||
           (slice.architecture == kArm64 && (system_ >= kFirstOnArm64 || isOnly));
  }

  void checkSlices(const BundleTree::Item& executable, const CodeFile& file,
                   const std::vector<MachOSlice>& slices) {
    bool anyUsed = false;
    for (const MachOSlice& slice : slices) {
      if (!isUsed(slice, slices))
        continue;
      anyUsed = true;
      MachOLinkage linkage = platform::readMachOLinkage(file, slice.range);
      const std::string place = platform::quoted(executable.path) + " (" + slice.architecture + ")";
      if (linkage.fileType != platform::mach_o::file_type::kExecutable) {
        add(place + " is a Mach-O file, but not a program.");
        continue;
      }
      checkTarget(place, linkage.targets);
      for (const MissingLibrary& missing :
           LoadCheck(tree_, slice.architecture).missingLibraries(executable.path, std::move(linkage)))
        missing_[missing] += (missing_[missing].empty() ? "" : ", ") + slice.architecture;
    }
    for (const auto& [missing, architectures] : missing_)
      add(platform::sentence(platform::quoted(missing.loader) + " (" + architectures +
                                 ") needs the library " + platform::quoted(missing.name),
                             missing.reason));
    if (!anyUsed)
      refuseArchitectures(executable, slices);
  }

  void refuseArchitectures(const BundleTree::Item& executable, const std::vector<MachOSlice>& slices) {
    std::string names;
    for (const MachOSlice& slice : slices)
      names += (names.empty() ? "" : ", ") + slice.architecture;
    add("Its executable " + platform::quoted(executable.path) +
        " has no code for arm64 or x86_64, only for " + names + ".");
  }

  void checkTarget(const std::string& place, const std::vector<MachOTarget>& targets) {
    bool isForMac = targets.empty();
    for (const MachOTarget& target : targets) {
      // Catalyst counts in versions of another system; LSMinimumSystemVersion has the one that matters.
      isForMac |= target.platform == build_platform::kMacOS || target.platform == build_platform::kCatalyst;
      const SystemVersion least{target.major, target.minor, target.patch};
      if (target.platform == build_platform::kMacOS && least > system_)
        add(place + " is built for macOS " + versionText(least) + " and later, and this is macOS " +
            versionText(system_) + ".");
    }
    if (!isForMac)
      add(place + " is built for another system than macOS.");
  }

  BundleTree tree_;
  SystemVersion system_;
  std::map<MissingLibrary, std::string> missing_;  ///< with the architectures for which it is missing
  std::vector<std::string> obstacles_;
};

}  // namespace

std::vector<std::string> obstaclesToStart(const std::filesystem::path& application, SystemVersion system) {
  return StartCheck(application, system).obstacles();
}

}  // namespace rehearse
