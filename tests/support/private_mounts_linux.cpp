#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/support/files.hpp"
#include "tests/support/private_mounts.hpp"

namespace test {

bool enterPrivateMounts() {
  const uid_t user = ::getuid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
    return false;
  if (user != 0)
    writeFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace test
