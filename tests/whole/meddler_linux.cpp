// Preloaded into the real updater, this changes what it has just put in place, at the one instant that no
// other process could hit for certain: between the swap and the last verification.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

bool swapped = false;

}  // namespace

extern "C" int renameat2(int oldDirectory, const char* oldName, int newDirectory, const char* newName,
                         unsigned flags) noexcept {
  using Rename = int (*)(int, const char*, int, const char*, unsigned);
  static const auto real = reinterpret_cast<Rename>(::dlsym(RTLD_NEXT, "renameat2"));
  if (swapped && std::getenv("MEDDLER_FAILS_RENAMES") != nullptr) {
    errno = EIO;
    return -1;
  }
  const int result = real(oldDirectory, oldName, newDirectory, newName, flags);
  if (result == 0 && (flags & RENAME_EXCHANGE) != 0) {
    swapped = true;
    const int file = ::open(std::getenv("MEDDLER_CHANGES"), O_WRONLY | O_APPEND);
    if (file < 0 || ::write(file, "x", 1) != 1)
      std::abort();
    ::close(file);
  }
  return result;
}
