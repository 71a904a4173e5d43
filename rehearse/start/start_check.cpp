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

/// Of the code in a file, for some of its architectures.
struct CodeFault {
  ObstacleKind kind = ObstacleKind::build;
  std::string path;
  std::string clause;

  auto operator<=>(const CodeFault&) const =
      default;  // NOLINT(modernize-use-nullptr): the compiler's own text
};

class StartCheck {
 public:
  StartCheck(const std::filesystem::path& application, SystemVersion system)
      : tree_(application), system_(system) {}

  std::vector<Obstacle> obstacles() {
    for (const auto& [one, other] : tree_.collisions())
      add(ObstacleKind::names, "On the usual file system of a Mac " + platform::quoted(one) + " and " +
                                   platform::quoted(other) + " are one item.");
    if (const std::optional<PropertyList> information = readInformation()) {
      checkLeastSystem(*information);
      if (const BundleTree::Item* executable = findExecutable(*information))
        checkExecutable(*executable);
    }
    return std::move(obstacles_);
  }

 private:
  void add(ObstacleKind kind, std::string sentence) { obstacles_.push_back({kind, std::move(sentence)}); }

  CodeFile open(const BundleTree::Item& item) const {
    return CodeFile(platform::Entry::at(platform::URL::fileURLWithPath((tree_.root() / item.path).native())));
  }

  std::optional<PropertyList> readInformation() {
    const BundleTree::Item* item = tree_.resolve(kInformation).item;
    if (item == nullptr || item->kind != ItemKind::file) {
      add(ObstacleKind::information, "Its " + platform::quoted(kInformation) + " is missing.");
      return std::nullopt;
    }
    const std::string bytes = open(*item).content(kLargestInformation);
    try {
      return platform::NSPropertyListSerialization::propertyListWithData(platform::Data(bytes));
    } catch (const platform::PropertyListError& error) {
      add(ObstacleKind::information,
          platform::sentence("Its " + platform::quoted(kInformation) + " cannot be read", error));
      return std::nullopt;
    }
  }

  void checkLeastSystem(const PropertyList& information) {
    const auto text = information.stringForKey("LSMinimumSystemVersion");
    if (!text)
      return;
    try {
      required_ = systemVersion(*text);
      if (required_ > system_)
        add(ObstacleKind::system,
            "It requires macOS " + *text + ", and starts are judged for macOS " + versionText(system_) + ".");
    } catch (const platform::Error&) {
      // The system takes no notice of what is not a version either.
    }
  }

  const BundleTree::Item* findExecutable(const PropertyList& information) {
    const auto name = information.stringForKey("CFBundleExecutable");
    if (!name) {
      add(ObstacleKind::executable, "Its Info.plist names no executable.");
      return nullptr;
    }
    if (!staysBelow(*name)) {
      add(ObstacleKind::executable,
          "The executable " + platform::quoted(*name) + " is not in its Contents/MacOS.");
      return nullptr;
    }
    const BundleTree::Place place = tree_.resolve(std::string(kCode) + "/" + *name);
    if (place.leavesBundle) {
      add(ObstacleKind::executable,
          "Its executable " + platform::quoted(*name) + " is a link out of the application.");
      return nullptr;
    }
    if (place.item == nullptr) {
      add(ObstacleKind::executable, "Its executable " + platform::quoted(*name) + " is missing.");
      return nullptr;
    }
    if (place.item->kind != ItemKind::file) {
      add(ObstacleKind::executable, "Its executable " + platform::quoted(*name) + " is not a file.");
      return nullptr;
    }
    if ((place.item->permissions & 0111U) == 0) {
      add(ObstacleKind::permission,
          "Its executable " + platform::quoted(*name) + " has no permission to execute.");
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
      add(ObstacleKind::executable,
          platform::sentence(
              "Its executable " + platform::quoted(executable.path) + " is not a valid Mach-O file", error));
      return;
    }
    if (const auto obstacle =
            obstacleToScript(file.read(0, std::min<std::uint64_t>(file.size(), kLongestFirstLine)), system_))
      add(ObstacleKind::interpreter, *obstacle);
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
      checkSlice(executable.path, slice.architecture, platform::readMachOLinkage(file, slice.range));
    }
    for (const auto& [fault, architectures] : codeFaults_)
      add(fault.kind, platform::quoted(fault.path) + " (" + architectures + ") " + fault.clause);
    if (!anyUsed)
      refuseArchitectures(executable, slices);
  }

  void refuseArchitectures(const BundleTree::Item& executable, const std::vector<MachOSlice>& slices) {
    std::string names;
    for (const MachOSlice& slice : slices)
      names += (names.empty() ? "" : ", ") + slice.architecture;
    add(ObstacleKind::build, "Its executable " + platform::quoted(executable.path) +
                                 " has no code for arm64 or x86_64, only for " + names + ".");
  }

  void checkSlice(const std::string& path, const std::string& architecture, MachOLinkage linkage) {
    const auto note = [&](ObstacleKind kind, const std::string& where, const std::string& clause) {
      std::string& architectures = codeFaults_[{kind, where, clause}];
      architectures += (architectures.empty() ? "" : ", ") + architecture;
    };
    if (linkage.fileType != platform::mach_o::file_type::kExecutable) {
      note(ObstacleKind::build, path, "is a Mach-O file, but not a program.");
      return;
    }
    bool isForMac = linkage.targets.empty();
    for (const MachOTarget& target : linkage.targets) {
      // Catalyst counts in versions of another system; LSMinimumSystemVersion has the one that matters.
      isForMac |= target.platform == build_platform::kMacOS || target.platform == build_platform::kCatalyst;
      const SystemVersion least{target.major, target.minor, target.patch};
      if (target.platform == build_platform::kMacOS && least > std::max(system_, required_))
        note(ObstacleKind::system, path,
             "is built for macOS " + versionText(least) + " and later, and starts are judged for macOS " +
                 versionText(system_) + ".");
    }
    if (!isForMac)
      note(ObstacleKind::build, path, "is built for another system than macOS.");
    for (const MissingLibrary& missing :
         LoadCheck(tree_, architecture).missingLibraries(path, std::move(linkage)))
      note(ObstacleKind::library, missing.loader,
           platform::sentence("needs the library " + platform::quoted(missing.name), missing.reason));
  }

  BundleTree tree_;
  SystemVersion system_;
  SystemVersion required_;                       ///< by Info.plist
  std::map<CodeFault, std::string> codeFaults_;  ///< with the architectures that have them
  std::vector<Obstacle> obstacles_;
};

}  // namespace

std::vector<Obstacle> obstaclesToStart(const std::filesystem::path& application, SystemVersion system) {
  return StartCheck(application, system).obstacles();
}

}  // namespace rehearse
