#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/private_place.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr const char* kTemporary = "/tmp";

void writeMap(const char* path, const std::string& text) {
  platform::FileDescriptor::open(platform::URL::fileURLWithPath(path), O_WRONLY).writeAll(text, path);
}

/// For a failed call about mounts or namespaces, where ENOSPC is about a limit of the system, not about
/// space.
[[noreturn]] void refuse(const std::string& what, int reason, const char* limit) {
  if (reason == ENOSPC)
    throw platform::Error(
        platform::sentence(what, std::string("the system's limit of ") + limit + " is reached"));
  throw platform::SystemError(what, reason);
}

void mount(const char* what, const fs::path& at, const char* type, unsigned long flags, const char* options) {
  if (::mount(what, at.c_str(), type, flags, options) != 0)
    refuse("Nothing could be mounted at " + platform::quoted(at.native()), errno,
           "mounts (/proc/sys/fs/mount-max)");
}

std::string memoryOptions(std::optional<std::uint64_t> bytes) {
  // A size of 0 would be no limit.
  return "mode=0777" + (bytes ? ",size=" + std::to_string(*bytes == 0 ? 1 : *bytes) : std::string());
}

/// The flags of a mount that a user namespace must not take away.
unsigned long lockedFlags(const fs::path& at) {
  struct statvfs status {};
  if (::statvfs(at.c_str(), &status) != 0)
    throw platform::SystemError(platform::quoted(at.native()) + " could not be examined", errno);
  constexpr std::array<std::pair<unsigned long, unsigned long>, 6> kFlags{{{ST_NOSUID, MS_NOSUID},
                                                                           {ST_NODEV, MS_NODEV},
                                                                           {ST_NOEXEC, MS_NOEXEC},
                                                                           {ST_NOATIME, MS_NOATIME},
                                                                           {ST_NODIRATIME, MS_NODIRATIME},
                                                                           {ST_RELATIME, MS_RELATIME}}};
  unsigned long flags = 0;
  for (const auto& [reported, flag] : kFlags)
    flags |= (status.f_flag & reported) != 0 ? flag : 0;
  return flags;
}

bool isBelow(const fs::path& path, const fs::path& directory) {
  const fs::path relative = path.lexically_relative(directory);
  return !relative.empty() && *relative.begin() != "..";
}

void makeDirectory(const fs::path& path, fs::perms permissions) {
  fs::create_directories(path);
  fs::permissions(path, permissions);
}

}  // namespace

void enterPrivateMounts() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) {
    const int reason = errno;
    refuse(reason == ENOSPC ? "No private mounts can be had"
           : user == 0      ? "The superuser needs the capability CAP_SYS_ADMIN for private mounts"
                            : "The system must allow user namespaces to this user for private "
                              "mounts, or the superuser must run the command",
           reason, "namespaces (/proc/sys/user/max_mnt_namespaces, max_user_namespaces)");
  }
  try {
    if (user != 0) {
      // A file of a user or group that the namespace does not map can be neither created nor changed. The
      // group may only be mapped once the process cannot change its groups any more.
      writeMap("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
      writeMap("/proc/self/setgroups", "deny");
      writeMap("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
    }
    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  } catch (const platform::Error& failure) {
    throw platform::Error(
        platform::sentence("The system must allow mounts in a user namespace to this user, or the superuser "
                           "must run the command",
                           failure));
  }
}

Mount Mount::inMemory(const fs::path& at, std::optional<std::uint64_t> bytes) {
  mount("tmpfs", at, "tmpfs", 0, memoryOptions(bytes).c_str());
  return Mount(at);
}

Mount Mount::bound(const fs::path& what, const fs::path& at) {
  mount(what.c_str(), at, nullptr, MS_BIND | MS_REC, nullptr);
  return Mount(at);
}

Mount Mount::readOnly(const fs::path& at) {
  Mount result = bound(at, at);
  mount("none", at, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | lockedFlags(at), nullptr);
  return result;
}

Mount::~Mount() {
  // What cannot be unmounted is gone with the namespace.
  if (!at_.empty())
    static_cast<void>(::umount2(at_.c_str(), MNT_DETACH));
}

void Mount::resize(std::uint64_t bytes) const {
  mount("none", at_, nullptr, MS_REMOUNT, memoryOptions(bytes).c_str());
}

PrivatePlace::PrivatePlace(const fs::path& directory, Storage storage) {
  makeDirectory(directory, fs::perms(0755));
  const fs::path place = fs::canonical(directory);
  if (isBelow(place, fs::canonical(kTemporary)))
    throw platform::Error("The scratch directory " + platform::quoted(place.native()) +
                          " is below /tmp, which the updater's tools use: another one is needed.");
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0)
    throw platform::SystemError("The process cannot adopt orphans", errno);
  enterPrivateMounts();
  if (storage == Storage::inMemory)
    directoryMount_ = Mount::inMemory(place);
  home_ = place / "home";
  temporary_ = place / "tmp";
  makeDirectory(home_, fs::perms(0755));
  makeDirectory(temporary_, fs::perms(01777));
  if (storage == Storage::inMemory) {
    homeMount_ = Mount::inMemory(home_);
    temporaryMount_ = Mount::inMemory(temporary_);
  }
  systemTemporary_ = place / "outside";
  makeDirectory(systemTemporary_, fs::perms(0755));
  systemTemporaryMount_ = Mount::bound(kTemporary, systemTemporary_);
  ownTemporaryMount_ = Mount::bound(temporary_, kTemporary);
}

fs::path PrivatePlace::reachable(const fs::path& path) const {
  return isBelow(path, kTemporary) ? systemTemporary_ / path.lexically_relative(kTemporary) : path;
}

}  // namespace rehearse
