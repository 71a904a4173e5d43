#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/helpers/bytes.hpp"
#include "tests/helpers/files.hpp"
#include "tests/platform/ditto/tree_description.hpp"

namespace fs = std::filesystem;

namespace test {
namespace {

constexpr unsigned kNobody = 65534;

std::string tar(const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram("/usr/bin/tar", arguments);
  if (outcome.exitStatus != 0)
    throw std::runtime_error("tar: " + outcome.error);
  return outcome.output;
}

}  // namespace

std::string describeTree(const fs::path& root) {
  const TemporaryDirectory directory;
  const fs::path archive = directory / "archive";
  // The archive must not depend on the root's name, the current time or the process.
  tar({"--create", "--file", archive, "--directory", root.parent_path(), "--sort=name", "--sparse",
       "--sparse-version=0.0", "--acls", "--xattrs", "--xattrs-include=*", "--format=posix",
       "--pax-option=exthdr.name=attributes,delete=atime,delete=ctime", "--transform=s,^[^/]*,.,rhS",
       root.filename()});
  const std::string list = tar({"--list", "--verbose", "--full-time", "--numeric-owner", "--file", archive});
  return list + "archived with hash " + std::to_string(std::hash<std::string>()(readFile(archive)));
}

void setModificationTime(const fs::path& path, long seconds, long nanoseconds) {
  const timespec times[] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
    throw std::runtime_error("cannot set the time of " + path.native());
}

bool setExtendedAttribute(const fs::path& path, const std::string& name, const std::string& value) {
  return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

std::string accessControlList(unsigned user) {
  std::string list{2, 0, 0, 0};  // the version; then tag, permissions and number of each entry, little-endian
  const auto add = [&](char tag, char permissions, unsigned id) {
    list += std::string{tag, 0, permissions, 0} + littleEndian(id, 4);
  };
  constexpr unsigned kNone = ~0U;
  add(0x01, 7, kNone);
  add(0x02, 4, user);
  add(0x04, 5, kNone);
  add(0x10, 5, kNone);
  add(0x20, 1, kNone);
  return list;
}

Outcome ditto(const fs::path& source, const fs::path& destination, const std::function<void()>& prepare) {
  return runProgram(buildPrefix() / "libexec/quorin/ditto", {source, destination}, prepare);
}

void becomeNobody() {
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
    ::_exit(126);
}

}  // namespace test
