#include "rehearse/stories/changed_images.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>

#include "platform/files/data.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/stories/application_source.hpp"
#include "tools/make_disk_image/hfs_plus_maker.hpp"
#include "tools/make_disk_image/udif_writer.hpp"
#include "tools/sign_bundle/chain_maker.hpp"
#include "tools/sign_bundle/code_signer.hpp"
#include "tools/sign_bundle/signing_identity.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using platform::FileDescriptor;
using platform::PropertyList;
using platform::URL;

constexpr std::uint32_t kStoredRun = 1;

URL location(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

void flipBit(const fs::path& path, std::uint64_t offset) {
  const FileDescriptor file = FileDescriptor::open(location(path), O_RDWR);
  std::array<char, 1> byte{};
  const auto count = file.readAt(offset, byte);
  if (!count || *count != 1)
    throw platform::Error("There is no byte to change in " + platform::quoted(path.native()) + ".");
  byte[0] = static_cast<char>(byte[0] ^ 1);
  if (!file.writeAt(offset, byte))
    throw platform::SystemError(platform::quoted(path.native()) + " could not be changed", errno);
}

/// Blocks as they are: a changed image lives for a minute.
make_disk_image::BlockEncoding storedBlocks() {
  return {kStoredRun, [](std::span<const char> block) { return std::string(block.data(), block.size()); }};
}

void makeImage(const fs::path& folder, const fs::path& image) {
  FileDescriptor file = FileDescriptor::open(location(image), O_WRONLY | O_CREAT | O_EXCL, 0644);
  const FileDescriptor directory =
      FileDescriptor::open(location(image.parent_path()), O_RDONLY | O_DIRECTORY);
  const auto volume = make_disk_image::makeHfsPlusVolume(location(folder), "Rehearsal", directory);
  make_disk_image::UdifWriter writer(file);
  writer.addTable(
      {"whole disk (Apple_HFS : 0)", *volume.disk, volume.partition.offset, volume.partition.length, 0},
      storedBlocks());
  writer.finish();
  file.close(image.native());
}

/// A file that the seal certainly covers: the largest resource, or the main executable.
fs::path sealedFile(const fs::path& application) {
  fs::path largest = mainExecutable(application);
  std::uint64_t size = 0;
  std::error_code failure;
  fs::recursive_directory_iterator entry(application / "Contents/Resources", failure);
  for (; !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure)) {
    const std::string name = entry->path().filename().native();
    if (entry->is_symlink() || !entry->is_regular_file() || name.starts_with('.') ||
        name == "locversion.plist")
      continue;
    if (entry->file_size() > size) {
      size = entry->file_size();
      largest = entry->path();
    }
  }
  return largest;
}

void changeIdentifier(const fs::path& application) {
  const URL file = location(application / "Contents/Info.plist");
  const PropertyList list =
      platform::NSPropertyListSerialization::propertyListWithData(platform::Data::contentsOf(file));
  PropertyList::Dictionary values = *list.dictionary();
  values.insert_or_assign("CFBundleIdentifier",
                          list.stringForKey("CFBundleIdentifier").value_or("") + ".other");
  platform::NSPropertyListSerialization::dataWithPropertyList(PropertyList(std::move(values)))
      .write(file, platform::DataWritingOptions::atomic);
}

}  // namespace

ChangedImages::ChangedImages(const PrivatePrefix& prefix, const OfferedRelease& release, fs::path directory)
    : prefix_(prefix), release_(release), directory_(std::move(directory)) {
  fs::create_directories(directory_);
}

const ChangedImage& ChangedImages::flipped() {
  return made("flipped", [this](const fs::path& image) {
    fs::copy_file(release_.image, image);
    flipBit(image, fs::file_size(image) / 2);
  });
}

const ChangedImage& ChangedImages::truncated() {
  return made("truncated", [this](const fs::path& image) {
    fs::copy_file(release_.image, image);
    fs::resize_file(image, fs::file_size(image) / 2);
  });
}

const ChangedImage& ChangedImages::remade() {
  return madeOf("remade", [](const fs::path&) {});
}

const ChangedImage& ChangedImages::signedAnew() {
  return madeOf("signed anew", [this](const fs::path& application) { sign(application); });
}

const ChangedImage& ChangedImages::otherIdentifier() {
  return madeOf("other identifier", [this](const fs::path& application) {
    changeIdentifier(application);
    sign(application);
  });
}

const ChangedImage& ChangedImages::damagedFile() {
  return madeOf("damaged file", damage);
}

const ChangedImage& ChangedImages::made(const std::string& name,
                                        const std::function<void(const fs::path&)>& make) {
  const auto found = images_.find(name);
  if (found != images_.end())
    return found->second;
  const fs::path path = directory_ / (name + ".dmg");
  make(path);
  return images_.emplace(name, ChangedImage{path, QuorinOstrevalUpdater::sha256(location(path))})
      .first->second;
}

const ChangedImage& ChangedImages::madeOf(const std::string& name, const Change& change) {
  return made(name, [&](const fs::path& image) {
    const fs::path folder = directory_ / "volume";
    fs::create_directory(folder);
    const platform::ScopeExit removal([&] { removeItem(folder); });
    const fs::path application = folder / release_.application->bundle.filename();
    copyBundle(prefix_, release_.application->bundle, application);
    change(application);
    makeImage(folder, image);
  });
}

void ChangedImages::sign(const fs::path& application) {
  const URL chain = location(directory_ / "chain");
  if (!fs::exists(chain.path()))
    sign_bundle::makeChain(chain, {.team = release_.application->team,
                                   .name = "Rehearsal",
                                   .keys = sign_bundle::KeyKind::ellipticCurve});
  const sign_bundle::SigningIdentity identity = sign_bundle::SigningIdentity::read(chain);
  sign_bundle::CodeSigner(&identity, {}).sign(location(application), std::nullopt);
}

void damage(const fs::path& application) {
  const fs::path file = sealedFile(application);
  fs::permissions(file, fs::perms::owner_write, fs::perm_options::add);
  flipBit(file, fs::file_size(file) / 2);
}

}  // namespace rehearse
