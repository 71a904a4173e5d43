#include "rehearse/proof/release_material.hpp"

#include <algorithm>
#include <memory>

#include "platform/crypto/digest.hpp"
#include "platform/files/data.hpp"
#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/bytes.hpp"
#include "rehearse/files/trees.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20U;

struct Extent {
  std::uint64_t bytes = 0;
  std::uint64_t greatestFile = 0;
};

Extent extentOf(const fs::path& directory) {
  constexpr std::uint64_t kBlock = 4096;
  Extent extent;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const bool isFile = entry.is_regular_file() && !entry.is_symlink();
    const std::uint64_t size = isFile ? entry.file_size() : 0;
    extent.bytes += size / kBlock * kBlock + kBlock;
    extent.greatestFile = std::max(extent.greatestFile, size);
  }
  return extent;
}

/// The SHA-256 of the main executable; empty when the property list names none.
std::string executableDigest(const fs::path& application) {
  const auto list = platform::NSPropertyListSerialization::propertyListWithData(platform::Data::contentsOf(
      platform::URL::fileURLWithPath((application / "Contents/Info.plist").native())));
  const std::optional<std::string> name = list.stringForKey("CFBundleExecutable");
  if (!name)
    return {};
  return platform::hexadecimal(platform::digestOf(platform::DigestAlgorithm::sha256,
                                                  readFile(application / "Contents/MacOS" / *name)));
}

Offer offerOf(const ReleasedImage& released) {
  return {.image = released.image,
          .digest = released.digest,
          .application = {released.version, released.build, inventory(released.application)},
          .sealedFile = sealedFileOf(released.application)};
}

}  // namespace

Material materialOf(const ProvedRelease& release) {
  Material material;
  material.updater = release.prefix / "bin/QuorinOstrevalUpdater";
  material.bundleName = release.installed.filename();
  material.identifier = release.identifier;
  material.team = release.team;
  material.oldBundle = release.installed;
  material.old = {release.installedVersion, release.installedBuild, inventory(release.installed)};
  material.update = offerOf(release.offered);
  material.broken = material.update;
  material.next = release.next ? offerOf(*release.next) : material.update;
  const std::string executable = executableDigest(release.offered.application);
  material.canRefuseStart = !executable.empty() && executable != executableDigest(release.installed);
  material.starts = std::make_shared<JudgedStarts>(release.prefix, release.system, executable);

  const Extent extent = extentOf(release.offered.application);
  const std::uint64_t image = fs::file_size(release.offered.image);
  material.enoughBeside = std::max(material.enoughBeside, 2 * extent.bytes + kMegabyte);
  material.enoughTemporary = std::max(material.enoughTemporary, 3 * extent.bytes + image + kMegabyte);
  material.enoughFile = std::max(material.enoughFile, extent.greatestFile + image + kMegabyte);
  // A processor that does little more than to trace takes this long with many updates at the same time.
  material.timeLimit += std::chrono::seconds((extent.bytes + image) / kMegabyte);
  return material;
}

}  // namespace rehearse
