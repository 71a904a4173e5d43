#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <sstream>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

/// The first release that reads APFS.
constexpr unsigned kOldestRelease = 22;

/// The release in a banner such as "7-Zip (z) 22.01 (x64) : Copyright"; 0 when there is none.
unsigned releaseIn(const std::string& banner) {
  std::istringstream words(banner);
  std::string word;
  for (bool isNamed = false; words >> word; isNamed = isNamed || word == "7-Zip") {
    unsigned release = 0;
    const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), release);
    if (isNamed && failure == std::errc() && *end == '.')
      return release;
  }
  return 0;
}

/// Without arguments, the program prints its banner first.
std::string bannerOf(const std::string& path) {
  constexpr std::uint64_t kLongestBanner = 200;
  const FileDescriptor null = FileDescriptor::open(URL::fileURLWithPath("/dev/null"), O_RDWR);
  const FileDescriptor output = memoryFile();
  ChildProgram program(path, {}, {null.get(), output.get(), null.get()});
  program.succeeds();
  std::string banner(std::min(sizeOf(output), kLongestBanner), '\0');
  readAt(output, 0, banner);
  return banner;
}

bool isNewEnough(const std::string& path) {
  try {
    return releaseIn(bannerOf(path)) >= kOldestRelease;
  } catch (const SystemError& error) {
    if (error.errorNumber() != ENOENT)
      throw;
    return false;
  }
}

}  // namespace

std::string suitableSevenZip(const std::vector<std::string>& programs) {
  std::string tried;
  for (const std::string& program : programs) {
    if (isNewEnough(program))
      return program;
    tried += (tried.empty() ? "" : " or ") + quoted(program);
  }
  throw ImageError("unpacking it needs 7-Zip " + std::to_string(kOldestRelease) +
                   " or newer, which is not installed as " + tried);
}

const std::string& sevenZip() {
  // The names of the program in different releases of Debian.
  static const std::string program = suitableSevenZip({"/usr/bin/7zz", "/usr/bin/7z"});
  return program;
}

}  // namespace platform::hdiutil
