#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/files/served_disks.hpp"

namespace rehearse {
namespace {

/// The octal escapes of proc_pid_mountinfo(5) replaced.
std::string unescaped(const std::string& text) {
  constexpr std::size_t kDigits = 3;
  std::string result;
  for (std::size_t place = 0; place < text.size(); ++place)
    if (text[place] == '\\' && place + kDigits < text.size()) {
      result += static_cast<char>(std::stoi(text.substr(place + 1, kDigits), nullptr, 8));
      place += kDigits;
    } else {
      result += text[place];
    }
  return result;
}

std::vector<std::string> servedMountPoints(const std::string& directory) {
  std::vector<std::string> points;
  std::ifstream mounts(directory + "/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    if (line.find(std::string(" - fuse ") + kServedDisk + " ") == std::string::npos)
      continue;
    constexpr int kFieldsBefore = 4;
    std::size_t begin = 0;
    for (int field = 0; field < kFieldsBefore; ++field)
      begin = line.find(' ', begin) + 1;
    points.push_back(unescaped(line.substr(begin, line.find(' ', begin) - begin)));
  }
  return points;
}

}  // namespace

void abandonDisksOf(pid_t process) {
  const std::string directory = "/proc/" + std::to_string(process);
  const std::vector<std::string> points = servedMountPoints(directory);
  if (points.empty())
    return;
  const platform::FileDescriptor mounts(::open((directory + "/ns/mnt").c_str(), O_RDONLY | O_CLOEXEC));
  if (!mounts.isOpen())
    return;
  // Another process, since this one must keep its own mounts.
  const pid_t helper = ::fork();
  if (helper == 0) {
    // The mount is busy and remains, but its connection is broken.
    if (::setns(mounts.get(), CLONE_NEWNS) == 0)
      for (const std::string& point : points)
        static_cast<void>(::umount2(point.c_str(), MNT_FORCE));
    ::_exit(0);
  }
  if (helper > 0)
    static_cast<void>(waitFor(helper));
}

}  // namespace rehearse
