#include <fcntl.h>
#include <linux/fs.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "rehearse/proof/system_calls.hpp"

namespace rehearse {
namespace {

std::vector<SystemCallKind> makeKinds() {
  const std::vector<int> forMemory = {ENOMEM};
  const std::vector<int> forLook = {EIO, EACCES};
  const std::vector<int> forOpen = {EACCES, EMFILE, EIO, ENOSPC, EINTR};
  const std::vector<int> forRead = {EIO, EINTR};
  const std::vector<int> forWrite = {ENOSPC, EIO, EINTR};
  const std::vector<int> forNames = {EIO, EACCES, ENOSPC};
  const std::vector<int> forSpawn = {EAGAIN, ENOMEM};
  return {
      {SYS_open, "open", forOpen},
      {SYS_openat, "openat", forOpen},
      {SYS_openat2, "openat2", forOpen, true},
      {SYS_creat, "creat", forOpen, true},
      {SYS_close, "close", {EIO, EINTR}},
      {SYS_read, "read", forRead},
      {SYS_pread64, "pread64", forRead},
      {SYS_readv, "readv", forRead},
      {SYS_getdents64, "getdents64", forRead},
      {SYS_write, "write", forWrite, true},
      {SYS_pwrite64, "pwrite64", forWrite, true},
      {SYS_writev, "writev", forWrite, true},
      {SYS_pwritev, "pwritev", forWrite, true},
      {SYS_pwritev2, "pwritev2", forWrite, true},
      {SYS_splice, "splice", forWrite, true},
      {SYS_copy_file_range, "copy_file_range", forWrite, true},
      {SYS_sendfile, "sendfile", forWrite, true},
      {SYS_fallocate, "fallocate", forWrite, true},
      {SYS_truncate, "truncate", forWrite, true},
      {SYS_ftruncate, "ftruncate", forWrite, true},
      {SYS_lseek, "lseek", {EIO}},
      {SYS_stat, "stat", forLook},
      {SYS_lstat, "lstat", forLook},
      {SYS_fstat, "fstat", {EIO}},
      {SYS_newfstatat, "newfstatat", forLook},
      {SYS_statx, "statx", forLook},
      {SYS_access, "access", forLook},
      {SYS_faccessat, "faccessat", forLook},
      {SYS_faccessat2, "faccessat2", forLook},
      {SYS_statfs, "statfs", {EIO}},
      {SYS_fstatfs, "fstatfs", {EIO}},
      {SYS_readlink, "readlink", forLook},
      {SYS_readlinkat, "readlinkat", forLook},
      {SYS_getcwd, "getcwd", {ENOMEM}},
      {SYS_chdir, "chdir", forLook},
      {SYS_fchdir, "fchdir", forLook},
      {SYS_mknod, "mknod", forNames, true},
      {SYS_mknodat, "mknodat", forNames, true},
      {SYS_mkdir, "mkdir", forNames, true},
      {SYS_mkdirat, "mkdirat", forNames, true},
      {SYS_rename, "rename", forNames, true},
      {SYS_renameat, "renameat", forNames, true},
      {SYS_renameat2, "renameat2", forNames, true},
      {SYS_link, "link", forNames, true},
      {SYS_linkat, "linkat", forNames, true},
      {SYS_symlink, "symlink", forNames, true},
      {SYS_symlinkat, "symlinkat", forNames, true},
      {SYS_unlink, "unlink", forNames, true},
      {SYS_unlinkat, "unlinkat", forNames, true},
      {SYS_rmdir, "rmdir", forNames, true},
      {SYS_chmod, "chmod", {EIO, EPERM}, true},
      {SYS_fchmod, "fchmod", {EIO, EPERM}, true},
      {SYS_fchmodat, "fchmodat", {EIO, EPERM}, true},
      {SYS_chown, "chown", {EIO, EPERM}, true},
      {SYS_fchown, "fchown", {EIO, EPERM}, true},
      {SYS_lchown, "lchown", {EIO, EPERM}, true},
      {SYS_fchownat, "fchownat", {EIO, EPERM}, true},
      {SYS_utime, "utime", {EIO, EPERM}, true},
      {SYS_utimes, "utimes", {EIO, EPERM}, true},
      {SYS_futimesat, "futimesat", {EIO, EPERM}, true},
      {SYS_utimensat, "utimensat", {EIO, EPERM}, true},
      {SYS_setxattr, "setxattr", {EIO, ENOSPC}, true},
      {SYS_lsetxattr, "lsetxattr", {EIO, ENOSPC}, true},
      {SYS_fsetxattr, "fsetxattr", {EIO, ENOSPC}, true},
      {SYS_removexattr, "removexattr", {EIO, EPERM}, true},
      {SYS_lremovexattr, "lremovexattr", {EIO, EPERM}, true},
      {SYS_fremovexattr, "fremovexattr", {EIO, EPERM}, true},
      {SYS_getxattr, "getxattr", {EIO}},
      {SYS_lgetxattr, "lgetxattr", {EIO}},
      {SYS_fgetxattr, "fgetxattr", {EIO}},
      {SYS_listxattr, "listxattr", {EIO}},
      {SYS_llistxattr, "llistxattr", {EIO}},
      {SYS_flistxattr, "flistxattr", {EIO}},
      {SYS_fsync, "fsync", {EIO, ENOSPC}, true},
      {SYS_fdatasync, "fdatasync", {EIO, ENOSPC}, true},
      {SYS_syncfs, "syncfs", {EIO, ENOSPC}, true},
      {SYS_flock, "flock", {EINTR, ENOLCK}},
      {SYS_fcntl, "fcntl", {EMFILE}},
      {SYS_ioctl, "ioctl", {EIO}},
      {SYS_dup, "dup", {EMFILE}},
      {SYS_dup2, "dup2", {EMFILE}},
      {SYS_dup3, "dup3", {EMFILE}},
      {SYS_pipe2, "pipe2", {EMFILE}},
      {SYS_mmap, "mmap", forMemory},
      {SYS_mremap, "mremap", forMemory},
      {SYS_brk, "brk", forMemory},
      {SYS_mprotect, "mprotect", forMemory},
      {SYS_munmap, "munmap", forMemory},
      {SYS_fork, "fork", forSpawn},
      {SYS_vfork, "vfork", forSpawn},
      {SYS_clone, "clone", forSpawn},
      {SYS_clone3, "clone3", forSpawn},
      {SYS_execve, "execve", {EIO, EACCES, ENOMEM}},
      {SYS_setsid, "setsid", {EPERM}},
      {SYS_close_range, "close_range", {EPERM}},
      {SYS_prctl, "prctl", {EPERM}},
      {SYS_fadvise64, "fadvise64", {EINVAL}},
      {SYS_getrandom, "getrandom", {EINTR}},
  };
}

}  // namespace

const std::vector<SystemCallKind>& systemCallKinds() {
  static const std::vector<SystemCallKind> kinds = makeKinds();
  return kinds;
}

const SystemCallKind& kindOf(long number) {
  const auto& kinds = systemCallKinds();
  const auto found =
      std::ranges::find_if(kinds, [number](const SystemCallKind& kind) { return kind.number == number; });
  if (found == kinds.end())
    throw std::out_of_range("no traced system call " + std::to_string(number));
  return *found;
}

bool changesFiles(const SystemCall& call) {
  constexpr std::uint64_t kOpensForChange = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
  switch (call.number) {
    case SYS_open:
      return (call.arguments[1] & kOpensForChange) != 0;
    case SYS_openat:
      return (call.arguments[2] & kOpensForChange) != 0;
    case SYS_ioctl:
      return call.arguments[1] == FICLONE || call.arguments[1] == FICLONERANGE;
    default:
      break;
  }
  return kindOf(call.number).changesFiles;
}

bool isRename(const SystemCall& call) {
  return kindOf(call.number).name.starts_with("rename");
}

std::vector<long> callsThatChangeFiles() {
  std::vector<long> numbers{SYS_open, SYS_openat, SYS_ioctl};
  for (const SystemCallKind& kind : systemCallKinds())
    if (kind.changesFiles)
      numbers.push_back(kind.number);
  return numbers;
}

std::vector<long> renames() {
  return {SYS_rename, SYS_renameat, SYS_renameat2};
}

bool isExchangeOfNames(const SystemCall& call) {
  return call.number == SYS_renameat2 && call.arguments[4] == RENAME_EXCHANGE;
}

bool isFlush(const SystemCall& call) {
  return call.number == SYS_syncfs;
}

}  // namespace rehearse
