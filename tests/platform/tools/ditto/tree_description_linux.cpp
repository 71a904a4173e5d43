#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <stdexcept>

#include "platform/foundation/file_descriptor.hpp"
#include "tests/platform/tools/ditto/tree_description.hpp"
#include "tests/support/bytes.hpp"
#include "tests/support/files.hpp"

namespace fs = std::filesystem;

namespace test {
namespace {

constexpr unsigned kNobody = 65534;

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0)
    throw std::runtime_error("cannot examine " + path.native());
  return status;
}

void describeAttributes(const fs::path& path, std::ostream& out) {
  std::string list(65536, '\0');
  const ssize_t size = ::listxattr(path.c_str(), list.data(), list.size());
  std::istringstream stream(list.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size)));
  std::set<std::string> names;
  for (std::string name; std::getline(stream, name, '\0');)
    names.insert(name);
  for (const std::string& name : names) {
    std::string value(65536, '\0');
    const ssize_t length = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
    out << " [" << name << '=' << value.substr(0, length < 0 ? 0 : static_cast<std::size_t>(length)) << ']';
  }
}

void describeData(const fs::path& path, std::ostream& out) {
  const auto file = platform::FileDescriptor::open(platform::URL::fileURLWithPath(path.native()), O_RDONLY);
  for (off_t position = 0; (position = ::lseek(file.get(), position, SEEK_DATA)) >= 0;) {
    const off_t end = ::lseek(file.get(), position, SEEK_HOLE);
    out << " data " << position << '-' << end;
    position = end;
  }
  out << " content " << std::hash<std::string>()(readFile(path));
}

std::string describe(const fs::path& path, const struct stat& status) {
  std::ostringstream out;
  out << std::oct << status.st_mode << std::dec << " owner " << status.st_uid << ':' << status.st_gid
      << " time " << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;
  if (S_ISLNK(status.st_mode)) {
    out << " to " << fs::read_symlink(path).native();
    return out.str();
  }
  describeAttributes(path, out);
  if (S_ISREG(status.st_mode)) {
    out << " size " << status.st_size;
    describeData(path, out);
  }
  return out.str();
}

}  // namespace

std::map<std::string, std::string> describeTree(const fs::path& root) {
  std::set<fs::path> paths{root};
  if (fs::is_directory(fs::symlink_status(root))) {
    for (const auto& entry : fs::recursive_directory_iterator(root))
      paths.insert(entry.path());
  }
  std::map<std::string, std::string> entries;
  std::map<ino_t, std::string> firstNames;
  for (const fs::path& path : paths) {
    const struct stat status = statusOf(path);
    const std::string name = path.lexically_relative(root).native();
    std::string description = describe(path, status);
    if (!S_ISDIR(status.st_mode))
      description += " first name " + firstNames.try_emplace(status.st_ino, name).first->second;
    entries.emplace(name, std::move(description));
  }
  return entries;
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
  return runProgram(buildPrefix() / "libexec/quorin/ditto", {source.native(), destination.native()}, prepare);
}

void becomeNobody() {
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
    ::_exit(126);
}

}  // namespace test
