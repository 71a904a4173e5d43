#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <optional>

#include "platform/files/directory_enumerator.hpp"
#include "platform/foundation/error.hpp"
#include "platform/hdiutil/apfs_container.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kLongestListing = 512U << 20U;

/// The option that selects the file system.
constexpr const char* kApfs = "-tapfs";
constexpr const char* kFat = "-tfat";

std::string content(const FileDescriptor& file) {
  const std::uint64_t size = sizeOf(file);
  if (size > kLongestListing)
    throw ImageLimitError("the list of its volume's entries takes more than 512 MiB");
  std::string bytes(size, '\0');
  readAt(file, 0, bytes);
  return bytes;
}

/// Runs the program on the volume and returns what it printed.
std::string runOn(const FileDescriptor& volume, const std::vector<std::string>& arguments) {
  const FileDescriptor output = memoryFile();
  const FileDescriptor errors = memoryFile();
  ChildProgram program(sevenZip(), arguments, {volume.get(), output.get(), errors.get()});
  if (!program.succeeds()) {
    const std::string reasons = content(errors);
    if (reasons.find(reasonOf(ENOSPC)) != std::string::npos)
      throw SystemError("Its volume could not be unpacked", ENOSPC);
    if (reasons.find("Unsupported Method") != std::string::npos)
      throw UnsupportedImageError("the compression of a file in its volume");
    throw ImageError("its volume is damaged");
  }
  return content(output);
}

std::vector<std::string> extraction(const char* type, const VolumeListing& listing,
                                    const std::vector<std::string>& excluded, const URL& tree) {
  // Symbolic links are created afterwards, from the listing: the program changes their texts. Without
  // "-sns-", it would write extended attributes as files.
  std::vector<std::string> arguments{"x", type, "-y", "-bsp0", "-bso0", "-sns-", "-snl-"};
  for (const ListedVolume& volume : listing.volumes)
    for (const std::string_view name : kHousekeepingNames)
      arguments.push_back("-x!" + volume.folder + (volume.folder.empty() ? "" : "/") + std::string(name));
  for (const std::string& folder : excluded)
    arguments.push_back("-x!" + folder);
  arguments.push_back("-o" + tree.path());
  arguments.emplace_back(kStandardInputPath);
  return arguments;
}

void compare(TreeWriter& tree, const ListedEntry& entry) {
  struct stat status {};
  const Entry unpacked = tree.find(entry.path);
  const bool exists =
      ::fstatat(unpacked.directory.get(), unpacked.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  const bool agrees =
      entry.kind == ListedEntry::Kind::folder
          ? S_ISDIR(status.st_mode)
          : S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == entry.size;
  if (!exists || !agrees)
    throw ImageError("its entry " + quoted(entry.path) + " could not be unpacked unchanged");
}

std::size_t countEntries(const URL& tree) {
  NSDirectoryEnumerator entries(tree, DirectoryEnumerationOptions::none);
  std::size_t count = 0;
  while (entries.nextObject())
    ++count;
  return count;
}

std::uint64_t totalSize(const VolumeListing& listing) {
  std::uint64_t size = 0;
  for (const ListedEntry& entry : listing.entries)
    size = saturatingSum(size, entry.size);
  return size;
}

VolumeListing list(const FileDescriptor& volume, const char* type) {
  return parseListing(runOn(volume, {"l", "-slt", type, kStandardInputPath}));
}

void requireShortPaths(const VolumeListing& listing, const URL& tree) {
  const std::size_t most = PATH_MAX - 1 - std::min<std::size_t>(PATH_MAX - 1, tree.path().size() + 1);
  for (const ListedEntry& entry : listing.entries)
    if (entry.path.size() > most)
      throw ImageLimitError("a path in its volume is longer than " + std::to_string(most) + " bytes");
}

/// Writes the listed entries, and nothing from the folders in `excluded`.
void unpack(const FileDescriptor& volume, const char* type, VolumeListing& listing,
            const std::vector<std::string>& excluded, const URL& tree) {
  requireShortPaths(listing, tree);
  const Directory root = Directory::open(tree, Directory::Links::refused);
  requireSpace(root.descriptor(), totalSize(listing), listing.entries.size());
  runOn(volume, extraction(type, listing, excluded, tree));

  std::vector<ListedEntry>& entries = listing.entries;
  std::sort(entries.begin(), entries.end(),
            [](const auto& one, const auto& other) { return one.path < other.path; });
  TreeWriter writer(root);
  std::size_t expected = 0;
  for (const ListedVolume& each : listing.volumes) {
    if (each.folder.empty())
      continue;
    ListedEntry folder;
    folder.path = each.folder;
    folder.kind = ListedEntry::Kind::folder;
    compare(writer, folder);
    ++expected;
  }
  for (const ListedEntry& entry : entries) {
    if (entry.kind == ListedEntry::Kind::symbolicLink)
      continue;
    compare(writer, entry);
    ++expected;
  }
  // Fewer entries than listed mean that two have the same name, more that the program added some.
  if (countEntries(tree) != expected)
    throw ImageError("its entries could not be unpacked unchanged");

  for (const ListedEntry& entry : entries) {
    if (entry.kind == ListedEntry::Kind::symbolicLink)
      writer.makeSymbolicLink(entry.path, entry.linkText);
  }
  // In reverse, because the path of a folder sorts before those of its entries.
  std::for_each(entries.rbegin(), entries.rend(),
                [&](const ListedEntry& entry) { writer.setMetadata(entry.path, entry.metadata); });
}

void setPermissions(const URL& tree, const std::string& folder, mode_t permissions) {
  const Directory root = Directory::open(tree, Directory::Links::refused);
  if (::fchmodat(root.get(), folder.empty() ? "." : folder.c_str(), permissions, 0) != 0)
    throw SystemError("The volume's root folder could not be written", errno);
}

}  // namespace

std::string writeFatTree(const FileDescriptor& volume, const URL& tree) {
  VolumeListing listing = list(volume, kFat);
  unpack(volume, kFat, listing, {}, tree);
  setPermissions(tree, "", 0777);
  return listing.volumes.front().name;
}

std::vector<VolumeTree> writeApfsTrees(const FileDescriptor& container, const URL& tree) {
  VolumeListing listing = list(container, kApfs);
  const auto described = readApfsVolumes(container);
  std::vector<VolumeTree> trees;
  std::vector<std::string> excluded;
  std::size_t encrypted = 0;
  for (const ListedVolume& volume : listing.volumes) {
    const auto found = described.find(volume.identifier);
    const bool isForUsers = found == described.end() || found->second.isForUsers();
    const bool isEncrypted = found != described.end() && found->second.isEncrypted;
    const bool isMounted = isForUsers && !isEncrypted;
    encrypted += isForUsers && isEncrypted ? 1 : 0;
    trees.push_back({volume.name, isMounted ? std::optional(volume.folder) : std::nullopt});
    if (!isMounted)
      excluded.push_back(volume.folder);
  }
  if (excluded.size() == trees.size()) {
    if (encrypted > 0)
      throw UnsupportedImageError("the encryption of its volume");
    return trees;
  }
  std::erase_if(listing.entries, [&](const ListedEntry& entry) {
    return std::any_of(excluded.begin(), excluded.end(),
                       [&](const std::string& folder) { return entry.path.starts_with(folder + "/"); });
  });
  std::erase_if(listing.volumes, [&](const ListedVolume& volume) {
    return std::find(excluded.begin(), excluded.end(), volume.folder) != excluded.end();
  });
  unpack(container, kApfs, listing, excluded, tree);
  for (const ListedVolume& volume : listing.volumes)
    setPermissions(tree, volume.folder, 0755);
  return trees;
}

}  // namespace platform::hdiutil
