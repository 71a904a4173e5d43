#include "platform/hdiutil/image_registry.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr unsigned kMostDevices = 100'000;
constexpr std::size_t kMostLeftovers = 64;
/// Marks the directory of an image that is attached, but not announced yet.
constexpr const char* kUnannounced = "unannounced";
constexpr std::string_view kTreePrefix = "tree-";
constexpr std::string_view kAttachingPrefix = "attaching-";
constexpr std::string_view kDetachingPrefix = "detaching-";
constexpr std::string_view kDevicePrefix = "/dev/";
constexpr std::size_t kLongestName = 255;

/// Holds a directory's lock, which the system releases at the latest when the process ends.
class Lock {
 public:
  explicit Lock(const Directory& directory) : directory_(directory) {
    if (uninterrupted([&] { return ::flock(directory.get(), LOCK_EX); }) != 0)
      throw SystemError("The attached images could not be locked", errno);
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() {
    // Fails only for a closed descriptor.
    static_cast<void>(::flock(directory_.get(), LOCK_UN));
  }

 private:
  const Directory& directory_;
};

bool tryLock(const Directory& directory) {
  return uninterrupted([&] { return ::flock(directory.get(), LOCK_EX | LOCK_NB); }) == 0;
}

bool isNumbered(std::string_view prefix, std::string_view name) {
  return name.starts_with(prefix) && name.size() > prefix.size() &&
         std::all_of(name.begin() + prefix.size(), name.end(),
                     [](char digit) { return digit >= '0' && digit <= '9'; });
}

bool isDeviceName(std::string_view name) {
  return isNumbered("disk", name);
}

/// "disk4" for "disk4" and "disk4s1"; empty for anything else.
std::string_view wholeDisk(std::string_view device) {
  const auto end = std::min(device.find('s', 4), device.size());
  const bool isSlice = end == device.size() || isNumbered("s", device.substr(end));
  return isSlice && isDeviceName(device.substr(0, end)) ? device.substr(0, end) : std::string_view();
}

std::string detachingName() {
  return std::string(kDetachingPrefix) + UUID().uuidString();
}

/// True when the entry is still the directory that was opened.
bool isStillNamed(const Entry& entry, const Directory& image) {
  const std::optional<FileIdentity> named = entry.identity();
  return named && named == identityOf(image.descriptor());
}

/// Removes a directory that another process may be removing at the same time, which makes single entries
/// disappear.
void removeTogether(const Entry& entry) {
  while (true) {
    try {
      return removeTree(entry);
    } catch (const SystemError& failure) {
      if (failure.errorNumber() != ENOENT)
        throw;
      if (!entry.identity())
        return;
    }
  }
}

bool isUnannounced(const Directory& image) {
  return ::faccessat(image.get(), kUnannounced, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isPrivateDirectory(const struct stat& status) {
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
         (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// True when an item exists at `location` that cannot be this user's registry.
bool isTaken(const URL& location) {
  struct stat status {};
  return ::lstat(systemPath(location), &status) == 0 && !isPrivateDirectory(status);
}

Directory openPrivateDirectory(const URL& location) {
  if (::mkdir(systemPath(location), 0700) != 0 && errno != EEXIST)
    throw SystemError("The directory " + quoted(location.path()) + " could not be created", errno);
  Directory directory = Directory::open(location, Directory::Links::refused);
  if (!isPrivateDirectory(statusOf(directory.descriptor(), directory.path())))
    throw ImageError("the directory " + quoted(location.path()) + " does not belong to this user alone");
  return directory;
}

Directory makeLockedDirectory(const Entry& entry) {
  const Lock lock(entry.directory);
  if (::mkdirat(entry.directory.get(), entry.name.c_str(), 0700) != 0)
    throw SystemError("A directory for the image could not be created", errno);
  try {
    Directory directory = entry.directory.subdirectory(entry.name);
    if (!tryLock(directory))
      throw SystemError("A directory for the image could not be locked", errno);
    return directory;
  } catch (...) {
    // The next call removes what remains.
    static_cast<void>(::unlinkat(entry.directory.get(), entry.name.c_str(), AT_REMOVEDIR));
    throw;
  }
}

}  // namespace

ImageRegistry::ImageRegistry(const URL& location)
    : location_(location), directory_(openPrivateDirectory(location)) {
  bestEffort([this] { removeLeftovers(); });
}

/// The next call tries again to remove what cannot be removed now.
void ImageRegistry::removeLeftovers() {
  std::vector<std::pair<Entry, Directory>> leftovers;
  {
    const Lock lock(directory_);
    for (const std::string& name : directory_.names()) {
      // Each takes a descriptor. The next call removes the rest.
      if (leftovers.size() == kMostLeftovers)
        break;
      const bool isAttached = isDeviceName(name);
      if (!isAttached && !name.starts_with(kAttachingPrefix) && !name.starts_with(kDetachingPrefix))
        continue;
      bestEffort([&] {
        Entry entry = directory_.entry(name);
        Directory leftover = directory_.subdirectory(name);
        // If the lock is free, either its process has ended, or it has attached the image and released the
        // lock since the directory was opened; the directory then has another name.
        if (!tryLock(leftover) || !isStillNamed(entry, leftover) || (isAttached && !isUnannounced(leftover)))
          return;
        if (isAttached) {
          Entry leaving = directory_.entry(detachingName());
          if (renameExclusively(entry, leaving) != 0)
            return;
          entry = std::move(leaving);
        }
        leftovers.emplace_back(std::move(entry), std::move(leftover));
      });
    }
  }
  for (const auto& leftover : leftovers)
    bestEffort([&] { removeTree(leftover.first); });
}

ImageRegistry::Attachment::Attachment(ImageRegistry& registry)
    : registry_(registry),
      entry_(registry.directory_.entry(std::string(kAttachingPrefix) + UUID().uuidString())),
      directory_(makeLockedDirectory(entry_)) {}

ImageRegistry::Attachment::~Attachment() {
  if (!isCommitted_) {
    // The next call removes what remains.
    bestEffort([this] { removeTree(entry_); });
  }
}

std::string ImageRegistry::Attachment::makeTree() {
  std::string tree = std::string(kTreePrefix) + UUID().uuidString();
  if (::mkdirat(directory_.get(), tree.c_str(), 0700) != 0)
    throw SystemError("A directory for the volume could not be created", errno);
  trees_.insert(tree);
  return tree;
}

URL ImageRegistry::Attachment::location(const std::string& tree) const {
  return registry_.location_.appendingPathComponent(entry_.name).appendingPathComponent(tree);
}

std::string ImageRegistry::Attachment::mount(const std::string& tree, const std::string& volumeName) {
  std::string name = mountName(volumeName);
  for (unsigned number = 1; name == kUnannounced || mountNames_.contains(name); ++number)
    name = mountName(volumeName, " " + std::to_string(number));
  if (const int failure = renameExclusively({directory_, tree}, {directory_, name}); failure != 0)
    throw SystemError("The volume could not be named " + quoted(name), failure);
  trees_.erase(tree);
  mountNames_.insert(name);
  return name;
}

void ImageRegistry::Attachment::discard(const std::string& tree) {
  trees_.erase(tree);
  removeTree(directory_.entry(tree));
}

void ImageRegistry::Attachment::discardTrees() {
  while (!trees_.empty())
    discard(std::string(*trees_.begin()));
}

void ImageRegistry::Attachment::commit(const std::function<void(unsigned)>& announce) {
  directory_.entry(kUnannounced).open(O_WRONLY | O_CREAT | O_EXCL, 0600).close(kUnannounced);
  for (unsigned device = 1; device < kMostDevices; ++device) {
    const Entry attached = registry_.directory_.entry("disk" + std::to_string(device));
    const int failure = renameExclusively(entry_, attached);
    if (failure == 0) {
      try {
        announce(device);
        // It may have been detached already.
        if (::unlinkat(directory_.get(), kUnannounced, 0) != 0 && errno != ENOENT)
          throw SystemError("The image could not be attached", errno);
      } catch (...) {
        // Another process may have detached it already; then there is nothing to undo.
        static_cast<void>(renameExclusively(attached, entry_));
        throw;
      }
      isCommitted_ = true;
      return;
    }
    if (failure != EEXIST && failure != ENOTEMPTY)
      throw SystemError("The image could not be attached", failure);
  }
  throw ImageError("too many images are attached");
}

URL ImageRegistry::mountPoint(unsigned device, const std::string& mountName) const {
  return location_.appendingPathComponent("disk" + std::to_string(device)).appendingPathComponent(mountName);
}

void ImageRegistry::detach(const std::string& deviceOrMountPoint) {
  const Entry attached = directory_.entry(nameOf(deviceOrMountPoint));
  const Entry leaving = directory_.entry(detachingName());
  // Open, and therefore locked, until the end.
  std::optional<Directory> image;
  {
    const Lock lock(directory_);
    try {
      image = directory_.subdirectory(attached.name);
    } catch (const SystemError&) {
      throw ImageError("no such image is attached");
    }
    // Fails if the process that attached the image still holds the lock. When it ends, another process may
    // remove the directory as a leftover at the same time.
    static_cast<void>(tryLock(*image));
    if (const int failure = renameExclusively(attached, leaving); failure != 0)
      throw SystemError("The image could not be detached", failure);
  }
  removeTogether(leaving);
}

std::string ImageRegistry::nameOf(const std::string& deviceOrMountPoint) const {
  if (deviceOrMountPoint.starts_with(kDevicePrefix)) {
    const std::string_view device =
        wholeDisk(std::string_view(deviceOrMountPoint).substr(kDevicePrefix.size()));
    if (!device.empty())
      return std::string(device);
  } else {
    const URL place = URL::fileURLWithPath(deviceOrMountPoint);
    const URL disk = place.deletingLastPathComponent();
    if (disk.deletingLastPathComponent() == location_ && isDeviceName(disk.lastPathComponent()) &&
        directory_.entry(disk.lastPathComponent() + "/" + place.lastPathComponent()).identity())
      return disk.lastPathComponent();
  }
  throw ImageError("no such image is attached");
}

std::string mountName(const std::string& volumeName, const std::string& suffix) {
  std::string name = volumeName;
  std::replace(name.begin(), name.end(), '/', ':');
  // A property list cannot contain control characters, nor should a line on a terminal.
  std::replace_if(
      name.begin(), name.end(),
      [](char character) { return static_cast<unsigned char>(character) < 0x20 || character == '\x7F'; },
      ' ');
  // XML excludes these two code points as well.
  for (const std::string_view excluded : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    for (std::size_t at = name.find(excluded); at != std::string::npos; at = name.find(excluded, at))
      name.replace(at, excluded.size(), " ");
  }
  if (name.empty() || name == "." || name == "..")
    name = "Untitled";
  if (name.size() > kLongestName - suffix.size()) {
    std::size_t end = kLongestName - suffix.size();
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U)
      --end;
    name.resize(end);
  }
  return name + suffix;
}

URL registryLocation(const URL& temporaryDirectory) {
  const std::string name = "quorin-images-" + std::to_string(::geteuid());
  URL usual = temporaryDirectory.appendingPathComponent(name);
  if (!isTaken(usual))
    return usual;
  // Other users may take any name, but cannot create a directory that belongs to this user.
  std::vector<std::string> others = Directory::open(temporaryDirectory, Directory::Links::followed).names();
  std::erase_if(others, [&](const std::string& other) {
    return !other.starts_with(name + "-") || isTaken(temporaryDirectory.appendingPathComponent(other));
  });
  return temporaryDirectory.appendingPathComponent(
      others.empty() ? name + "-" + UUID().uuidString() : *std::min_element(others.begin(), others.end()));
}

URL registryLocation() {
  return registryLocation(NSFileManager::defaultManager().temporaryDirectory());
}

}  // namespace platform::hdiutil
