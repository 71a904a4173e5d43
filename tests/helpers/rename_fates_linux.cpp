#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "tests/helpers/rename_fates.hpp"

unsigned test::renameFates = 0;

extern "C" int renameat2(int oldDirectory, const char* oldName, int newDirectory, const char* newName,
                         unsigned flags) noexcept {
  const unsigned fate = test::renameFates % 4;
  test::renameFates /= 4;
  const bool isMade = fate == 0 || fate == 3;
  const long result =
      isMade ? ::syscall(SYS_renameat2, oldDirectory, oldName, newDirectory, newName, flags) : 0;
  if (fate == 0 || fate == 2)
    return static_cast<int>(result);
  errno = EIO;
  return -1;
}
