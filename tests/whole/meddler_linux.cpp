// Preloaded into the real updater, this changes what it has just put in place, at the one instant that no
// other process could hit for certain: between the swap and the last verification. It also makes changes of
// names fail, and sets the updater's clock.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

namespace {

/// A variable that the program was started with; its own environment is empty by now.
const char* setting(const std::string& name) {
  static const std::string variables = [] {
    std::ifstream file("/proc/self/environ", std::ios::binary);
    return std::string(1, '\0') + std::string(std::istreambuf_iterator<char>(file), {});
  }();
  const auto place = variables.find('\0' + name + '=');
  return place == std::string::npos ? nullptr : variables.c_str() + place + name.size() + 2;
}

bool swapped = false;
bool pretended = false;

}  // namespace

extern "C" int renameat2(int oldDirectory, const char* oldName, int newDirectory, const char* newName,
                         unsigned flags) noexcept {
  using Rename = int (*)(int, const char*, int, const char*, unsigned);
  static const auto real = reinterpret_cast<Rename>(::dlsym(RTLD_NEXT, "renameat2"));
  const bool isExchange = (flags & RENAME_EXCHANGE) != 0;
  if (swapped && setting("MEDDLER_FAILS_RENAMES") != nullptr) {
    errno = EIO;
    return -1;
  }
  if (isExchange && setting("MEDDLER_KNOWS_NO_EXCHANGE") != nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (isExchange && !pretended && setting("MEDDLER_PRETENDS_EXCHANGE") != nullptr) {
    pretended = true;
    return 0;
  }
  const int result = real(oldDirectory, oldName, newDirectory, newName, flags);
  const char* const victim = setting("MEDDLER_CHANGES");
  if (result == 0 && isExchange && victim != nullptr && !swapped) {
    const int file = ::open(victim, O_WRONLY | O_APPEND);
    if (file < 0 || ::write(file, "x", 1) != 1)
      std::abort();
    ::close(file);
  }
  swapped = swapped || (result == 0 && isExchange);
  return result;
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Look = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Look>(::dlsym(RTLD_NEXT, "clock_gettime"));
  static const char* const jump = setting("MEDDLER_SETS_CLOCK");
  const int result = real(clock, time);
  if (jump != nullptr && clock == CLOCK_REALTIME) {
    // Each look finds it set once more.
    static std::time_t offset = 0;
    offset += std::atoi(jump);
    time->tv_sec += offset;
  }
  return result;
}
