#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/foundation/directory_enumerator.hpp"
#include "platform/foundation/error.hpp"
#include "platform/tools/hdiutil/child_program.hpp"
#include "platform/tools/hdiutil/disk.hpp"
#include "platform/tools/hdiutil/image_error.hpp"
#include "platform/tools/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kLongestListing = 512U << 20U;

std::string typeOption(SevenZipFileSystem fileSystem) {
  return fileSystem == SevenZipFileSystem::apfs ? "-tapfs" : "-tfat";
}

std::string content(const FileDescriptor& file) {
  const std::uint64_t size = sizeOf(file);
  if (size > kLongestListing)
    throw ImageError("its volume has too many entries.");
  std::string bytes(size, '\0');
  readAt(file, 0, bytes);
  return bytes;
}

/// Runs the program on the volume and returns what it printed.
std::string runOn(const FileDescriptor& volume, const std::vector<std::string>& arguments) {
  const FileDescriptor output = memoryFile();
  const FileDescriptor errors = memoryFile();
  ChildProgram program(kSevenZip, arguments, {volume.get(), output.get(), errors.get()});
  if (!program.succeeds()) {
    if (content(errors).find(reasonOf(ENOSPC)) != std::string::npos)
      throw SystemError("Its volume could not be unpacked", ENOSPC);
    throw ImageError("its volume is damaged.");
  }
  return content(output);
}

std::vector<std::string> extraction(SevenZipFileSystem fileSystem, const URL& tree) {
  // Links are made afterwards, from the listing: those that the program makes are not as they are stored.
  // Without "-sns-", extended attributes would become files.
  std::vector<std::string> arguments{"x", typeOption(fileSystem), "-y", "-bsp0", "-bso0", "-sns-", "-snl-"};
  for (const std::string_view name : kHousekeepingNames)
    arguments.push_back("-x!" + std::string(name));
  arguments.push_back("-o" + tree.path());
  arguments.emplace_back(kStandardInputPath);
  return arguments;
}

void compare(TreeWriter& tree, const ListedEntry& entry) {
  struct stat status {};
  const TreeWriter::Place place = tree.find(entry.path);
  const bool exists = ::fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  const bool agrees =
      entry.kind == ListedEntry::Kind::folder
          ? S_ISDIR(status.st_mode)
          : S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == entry.size;
  if (!exists || !agrees)
    throw ImageError("its entry " + quoted(entry.path) + " could not be unpacked as it is.");
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
    size = entry.size > UINT64_MAX - size ? UINT64_MAX : size + entry.size;
  return size;
}

}  // namespace

VolumeTree writeListedTree(const FileDescriptor& volume, SevenZipFileSystem fileSystem, const URL& tree) {
  VolumeListing listing =
      parseListing(runOn(volume, {"l", "-slt", typeOption(fileSystem), kStandardInputPath}));
  const FileDescriptor root = FileDescriptor::open(tree, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  requireSpace(root, totalSize(listing));
  runOn(volume, extraction(fileSystem, tree));

  std::vector<ListedEntry>& entries = listing.entries;
  std::sort(entries.begin(), entries.end(),
            [](const auto& one, const auto& other) { return one.path < other.path; });
  TreeWriter writer(root);
  std::size_t expected = 0;
  for (const ListedEntry& entry : entries) {
    if (entry.kind == ListedEntry::Kind::symbolicLink)
      continue;
    compare(writer, entry);
    ++expected;
  }
  // One entry less than listed means that two had the same name, one more that something was added.
  if (countEntries(tree) != expected)
    throw ImageError("its entries could not be unpacked as they are.");

  for (const ListedEntry& entry : entries) {
    if (entry.kind == ListedEntry::Kind::symbolicLink)
      writer.makeSymbolicLink(entry.path, entry.linkText);
  }
  // A folder's path is a beginning of those of its entries and stands before them.
  std::for_each(entries.rbegin(), entries.rend(),
                [&](const ListedEntry& entry) { writer.setMetadata(entry.path, entry.metadata); });
  if (::fchmod(root.get(), fileSystem == SevenZipFileSystem::apfs ? 0755 : 0777) != 0)
    throw SystemError("The volume's root folder could not be written", errno);
  return {listing.volumeName, !entries.empty()};
}

}  // namespace platform::hdiutil
