#include <fcntl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "rehearse/proof/system_calls.hpp"

namespace rehearse {
namespace {

const std::vector<int> kMemory = {ENOMEM};
const std::vector<int> kLook = {EIO, EACCES};
const std::vector<int> kOpen = {EACCES, EMFILE, EIO, ENOSPC, EINTR};
const std::vector<int> kRead = {EIO, EINTR};
const std::vector<int> kWrite = {ENOSPC, EIO, EINTR};
const std::vector<int> kNames = {EIO, EACCES, ENOSPC};
const std::vector<int> kSpawn = {EAGAIN, ENOMEM};

std::vector<SystemCallKind> makeKinds() {
  return {
      {SYS_open, "open", kOpen},
      {SYS_openat, "openat", kOpen},
      {SYS_openat2, "openat2", kOpen},
      {SYS_creat, "creat", kOpen, true},
      {SYS_close, "close", {EIO, EINTR}},
      {SYS_read, "read", kRead},
      {SYS_pread64, "pread64", kRead},
      {SYS_readv, "readv", kRead},
      {SYS_getdents64, "getdents64", kRead},
      {SYS_write, "write", kWrite, true},
      {SYS_pwrite64, "pwrite64", kWrite, true},
      {SYS_writev, "writev", kWrite, true},
      {SYS_copy_file_range, "copy_file_range", kWrite, true},
      {SYS_sendfile, "sendfile", kWrite, true},
      {SYS_fallocate, "fallocate", kWrite, true},
      {SYS_truncate, "truncate", kWrite, true},
      {SYS_ftruncate, "ftruncate", kWrite, true},
      {SYS_lseek, "lseek", {EIO}},
      {SYS_stat, "stat", kLook},
      {SYS_lstat, "lstat", kLook},
      {SYS_fstat, "fstat", {EIO}},
      {SYS_newfstatat, "newfstatat", kLook},
      {SYS_statx, "statx", kLook},
      {SYS_access, "access", kLook},
      {SYS_faccessat, "faccessat", kLook},
      {SYS_faccessat2, "faccessat2", kLook},
      {SYS_statfs, "statfs", {EIO}},
      {SYS_fstatfs, "fstatfs", {EIO}},
      {SYS_readlink, "readlink", kLook},
      {SYS_readlinkat, "readlinkat", kLook},
      {SYS_getcwd, "getcwd", {ENOMEM}},
      {SYS_chdir, "chdir", kLook},
      {SYS_fchdir, "fchdir", kLook},
      {SYS_mkdir, "mkdir", kNames, true},
      {SYS_mkdirat, "mkdirat", kNames, true},
      {SYS_rename, "rename", kNames, true},
      {SYS_renameat, "renameat", kNames, true},
      {SYS_renameat2, "renameat2", kNames, true},
      {SYS_link, "link", kNames, true},
      {SYS_linkat, "linkat", kNames, true},
      {SYS_symlink, "symlink", kNames, true},
      {SYS_symlinkat, "symlinkat", kNames, true},
      {SYS_unlink, "unlink", kNames, true},
      {SYS_unlinkat, "unlinkat", kNames, true},
      {SYS_rmdir, "rmdir", kNames, true},
      {SYS_chmod, "chmod", {EIO, EPERM}, true},
      {SYS_fchmod, "fchmod", {EIO, EPERM}, true},
      {SYS_fchmodat, "fchmodat", {EIO, EPERM}, true},
      {SYS_utimensat, "utimensat", {EIO, EPERM}, true},
      {SYS_setxattr, "setxattr", {EIO, ENOSPC}, true},
      {SYS_lsetxattr, "lsetxattr", {EIO, ENOSPC}, true},
      {SYS_fsetxattr, "fsetxattr", {EIO, ENOSPC}, true},
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
      {SYS_mmap, "mmap", kMemory},
      {SYS_mremap, "mremap", kMemory},
      {SYS_brk, "brk", kMemory},
      {SYS_mprotect, "mprotect", kMemory},
      {SYS_munmap, "munmap", kMemory},
      {SYS_fork, "fork", kSpawn},
      {SYS_vfork, "vfork", kSpawn},
      {SYS_clone, "clone", kSpawn},
      {SYS_clone3, "clone3", kSpawn},
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
  if (call.number == SYS_openat)
    return (call.arguments[2] & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
  return kindOf(call.number).changesFiles;
}

bool isRename(const SystemCall& call) {
  return kindOf(call.number).name.starts_with("rename");
}

bool isExchangeOfNames(const SystemCall& call) {
  return call.number == SYS_renameat2 && call.arguments[4] == RENAME_EXCHANGE;
}

bool isFlush(const SystemCall& call) {
  return call.number == SYS_syncfs;
}

}  // namespace rehearse
