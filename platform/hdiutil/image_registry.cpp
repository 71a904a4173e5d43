#include "platform/hdiutil/image_registry.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "platform/files/file_manager.hpp"
#include "platform/files/file_removal.hpp"
#include "platform/files/file_rename.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
constexpr unsigned kMostDevices = 100'000;
constexpr std::size_t kMostLeftovers = 64;
/// In the directory of an image that is attached, but not yet announced.
constexpr const char* kUnannounced = "unannounced";
constexpr std::string_view kTreePrefix = "tree-";
constexpr std::string_view kAttachingPrefix = "attaching-";
constexpr std::string_view kDetachingPrefix = "detaching-";
constexpr std::string_view kDevicePrefix = "/dev/";
constexpr std::size_t kLongestName = 255;

/// Holds a directory's lock, which the system gives back at the latest when the process ends.
class Lock {
 public:
  explicit Lock(const FileDescriptor& directory) : directory_(directory) {
    if (uninterrupted([&] { return ::flock(directory.get(), LOCK_EX); }) != 0)
      throw SystemError("The attached images could not be locked", errno);
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() {
    // Nothing but a closed descriptor could fail here.
    static_cast<void>(::flock(directory_.get(), LOCK_UN));
  }

 private:
  const FileDescriptor& directory_;
};

bool tryLock(const FileDescriptor& directory) {
  return uninterrupted([&] { return ::flock(directory.get(), LOCK_EX | LOCK_NB); }) == 0;
}

struct CloseDirectory {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};

std::vector<std::string> namesIn(const FileDescriptor& directory) {
  FileDescriptor duplicate = FileDescriptor::openAt(directory, ".", kDirectoryFlags);
  const std::unique_ptr<DIR, CloseDirectory> stream(::fdopendir(duplicate.get()));
  if (stream == nullptr)
    throw SystemError("The attached images could not be listed", errno);
  static_cast<void>(duplicate.release());  // the stream closes it
  std::vector<std::string> names;
  while (const dirent* entry =
             ::readdir(stream.get())) {  // NOLINT(concurrency-mt-unsafe): a stream of our own
    std::string name = static_cast<const char*>(entry->d_name);
    if (name != "." && name != "..")
      names.push_back(std::move(name));
  }
  return names;
}

bool isNumbered(std::string_view prefix, std::string_view name) {
  return name.starts_with(prefix) && name.size() > prefix.size() &&
         std::all_of(name.begin() + prefix.size(), name.end(),
                     [](char digit) { return digit >= '0' && digit <= '9'; });
}

bool isDeviceName(std::string_view name) {
  return isNumbered("disk", name);
}

/// "disk4" of "disk4" and "disk4s1"; of anything else, nothing.
std::string_view wholeDisk(std::string_view device) {
  const auto end = std::min(device.find('s', 4), device.size());
  const bool isSlice = end == device.size() || isNumbered("s", device.substr(end));
  return isSlice && isDeviceName(device.substr(0, end)) ? device.substr(0, end) : std::string_view();
}

std::string detachingName() {
  return std::string(kDetachingPrefix) + UUID().uuidString();
}

/// Whether `name` is still the directory that was opened by it.
bool isStillNamed(const FileDescriptor& registry, const std::string& name, const FileDescriptor& image) {
  struct stat named {};
  struct stat opened {};
  return ::fstatat(registry.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         ::fstat(image.get(), &opened) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// Removes a directory that another process may be removing too: what the other was faster with is gone, as
/// it should be.
void removeTogether(const FileDescriptor& registry, const std::string& name, std::string_view item) {
  while (true) {
    try {
      return removeTree(registry, name, item);
    } catch (const SystemError& failure) {
      struct stat status {};
      if (failure.errorNumber() != ENOENT)
        throw;
      if (::fstatat(registry.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    }
  }
}

bool isUnannounced(const FileDescriptor& image) {
  return ::faccessat(image.get(), kUnannounced, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isPrivateDirectory(const struct stat& status) {
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
         (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// True where something lies that cannot be the registry of this user.
bool isTaken(const URL& location) {
  struct stat status {};
  return ::lstat(systemPath(location), &status) == 0 && !isPrivateDirectory(status);
}

FileDescriptor openPrivateDirectory(const URL& location) {
  if (::mkdir(systemPath(location), 0700) != 0 && errno != EEXIST)
    throw SystemError("The directory " + quoted(location.path()) + " could not be created", errno);
  FileDescriptor directory = FileDescriptor::open(location, kDirectoryFlags);
  struct stat status {};
  if (::fstat(directory.get(), &status) != 0)
    throw SystemError(quoted(location.path()) + " could not be examined", errno);
  if (!isPrivateDirectory(status))
    throw ImageError("the directory " + quoted(location.path()) + " does not belong to this user alone.");
  return directory;
}

}  // namespace

ImageRegistry::ImageRegistry(const URL& location)
    : location_(location), directory_(openPrivateDirectory(location)) {
  bestEffort([this] { removeLeftovers(); });
}

/// What cannot be removed now is tried again by the next call.
void ImageRegistry::removeLeftovers() {
  std::vector<std::pair<std::string, FileDescriptor>> leftovers;
  {
    const Lock lock(directory_);
    for (const std::string& name : namesIn(directory_)) {
      // Each takes a descriptor; the rest is left to the next call.
      if (leftovers.size() == kMostLeftovers)
        break;
      const bool isAttached = isDeviceName(name);
      if (!isAttached && !name.starts_with(kAttachingPrefix) && !name.starts_with(kDetachingPrefix))
        continue;
      bestEffort([&] {
        FileDescriptor leftover = FileDescriptor::openAt(directory_, name, kDirectoryFlags);
        // A lock that can be had belonged to a process that is gone, or that has attached the image and
        // released it since the directory was opened; then the directory has another name.
        if (!tryLock(leftover) || !isStillNamed(directory_, name, leftover) ||
            (isAttached && !isUnannounced(leftover)))
          return;
        std::string leaving = name;
        if (isAttached) {
          leaving = detachingName();
          if (renameExclusively({directory_, name}, {directory_, leaving}) != 0)
            return;
        }
        leftovers.emplace_back(std::move(leaving), std::move(leftover));
      });
    }
  }
  for (const auto& [name, lock] : leftovers)
    bestEffort([&, &leftover = name] { removeTree(directory_, leftover, leftover); });
}

ImageRegistry::Attachment::Attachment(ImageRegistry& registry)
    : registry_(registry), name_(std::string(kAttachingPrefix) + UUID().uuidString()) {
  const Lock lock(registry_.directory_);
  if (::mkdirat(registry_.directory_.get(), name_.c_str(), 0700) != 0)
    throw SystemError("A directory for the image could not be created", errno);
  try {
    directory_ = FileDescriptor::openAt(registry_.directory_, name_, kDirectoryFlags);
    if (!tryLock(directory_))
      throw SystemError("A directory for the image could not be locked", errno);
  } catch (...) {
    // What stays is removed by the next call.
    static_cast<void>(::unlinkat(registry_.directory_.get(), name_.c_str(), AT_REMOVEDIR));
    throw;
  }
}

ImageRegistry::Attachment::~Attachment() {
  if (!isCommitted_) {
    // What stays is removed by the next call.
    bestEffort([this] { removeTree(registry_.directory_, name_, name_); });
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
  return registry_.location_.appendingPathComponent(name_).appendingPathComponent(tree);
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
  removeTree(directory_, tree, tree);
}

void ImageRegistry::Attachment::discardTrees() {
  while (!trees_.empty())
    discard(std::string(*trees_.begin()));
}

void ImageRegistry::Attachment::commit(const std::function<void(unsigned)>& announce) {
  FileDescriptor::openAt(directory_, kUnannounced, O_WRONLY | O_CREAT | O_EXCL, 0600).close(kUnannounced);
  for (unsigned device = 1; device < kMostDevices; ++device) {
    const std::string attached = "disk" + std::to_string(device);
    const int failure = renameExclusively({registry_.directory_, name_}, {registry_.directory_, attached});
    if (failure == 0) {
      try {
        announce(device);
        // It may have been detached already.
        if (::unlinkat(directory_.get(), kUnannounced, 0) != 0 && errno != ENOENT)
          throw SystemError("The image could not be attached", errno);
      } catch (...) {
        // Somebody may have detached it already; then there is nothing left to take back.
        static_cast<void>(renameExclusively({registry_.directory_, attached}, {registry_.directory_, name_}));
        throw;
      }
      isCommitted_ = true;
      return;
    }
    if (failure != EEXIST && failure != ENOTEMPTY)
      throw SystemError("The image could not be attached", failure);
  }
  throw ImageError("too many images are attached.");
}

URL ImageRegistry::mountPoint(unsigned device, const std::string& mountName) const {
  return location_.appendingPathComponent("disk" + std::to_string(device)).appendingPathComponent(mountName);
}

void ImageRegistry::detach(const std::string& deviceOrMountPoint) {
  const std::string name = nameOf(deviceOrMountPoint);
  const std::string leaving = detachingName();
  FileDescriptor image;
  {
    const Lock lock(directory_);
    try {
      image = FileDescriptor::openAt(directory_, name, kDirectoryFlags);
    } catch (const SystemError&) {
      throw ImageError("no such image is attached.");
    }
    // The process that attached the image may still hold the lock; when it ends, another may find a leftover
    // here.
    static_cast<void>(tryLock(image));
    if (const int failure = renameExclusively({directory_, name}, {directory_, leaving}); failure != 0)
      throw SystemError("The image could not be detached", failure);
  }
  removeTogether(directory_, leaving, location_.appendingPathComponent(leaving).path());
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
    struct stat status {};
    if (disk.deletingLastPathComponent() == location_ && isDeviceName(disk.lastPathComponent()) &&
        ::fstatat(directory_.get(), (disk.lastPathComponent() + "/" + place.lastPathComponent()).c_str(),
                  &status, AT_SYMLINK_NOFOLLOW) == 0)
      return disk.lastPathComponent();
  }
  throw ImageError("no such image is attached.");
}

std::string mountName(const std::string& volumeName, const std::string& suffix) {
  std::string name = volumeName;
  std::replace(name.begin(), name.end(), '/', ':');
  // Neither a property list nor a line on a terminal takes control characters.
  std::replace_if(
      name.begin(), name.end(),
      [](char character) { return static_cast<unsigned char>(character) < 0x20 || character == '\x7F'; },
      ' ');
  // Nor does XML take these two code points.
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
  // Somebody else may take any name, but can make nothing that belongs to this user.
  std::vector<std::string> others = namesIn(FileDescriptor::open(temporaryDirectory, O_RDONLY | O_DIRECTORY));
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
