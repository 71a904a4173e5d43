#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/helpers/files.hpp"
#include "tests/helpers/private_mounts.hpp"

namespace test {

bool enterPrivateMounts() {
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
    return false;
  if (user != 0) {
    // A file of a user or group that the namespace does not map can be neither created nor changed:
    // EOVERFLOW. The group may only be mapped once the process cannot change its groups any more.
    writeFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace test
