#include "platform/ditto/file_copy.hpp"

#include <fcntl.h>
#include <unistd.h>

#include "platform/ditto/attributes_copy.hpp"
#include "platform/foundation/error.hpp"

namespace platform::ditto {
namespace {

[[noreturn]] void failToCreate(const Entry& copy, int reason) {
  throw SystemError(quoted(copy.path()) + " could not be created", reason);
}

FileDescriptor createFile(const Entry& copy) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  FileDescriptor created =
      FileDescriptor::tryOpenAt(copy.directory.descriptor(), copy.name, kFlags, S_IRUSR | S_IWUSR);
  if (!created.isOpen())
    failToCreate(copy, errno);
  return created;
}

std::string textOf(const Entry& link, const struct stat& status) {
  std::string text(static_cast<std::size_t>(status.st_size) + 1, '\0');
  while (true) {
    const ssize_t length = ::readlinkat(link.directory.get(), link.name.c_str(), text.data(), text.size());
    if (length < 0)
      throw SystemError("The symbolic link " + quoted(link.path()) + " could not be read", errno);
    if (static_cast<std::size_t>(length) < text.size()) {
      text.resize(static_cast<std::size_t>(length));
      return text;
    }
    text.resize(2 * text.size());
  }
}

void copyLink(const Entry& source, const struct stat& status, const Entry& copy) {
  const std::string text = textOf(source, status);
  if (::symlinkat(text.c_str(), copy.directory.get(), copy.name.c_str()) != 0)
    failToCreate(copy, errno);
  copyLinkAttributes(status, copy);
}

}  // namespace

void copyFile(const Entry& source, const Entry& copy) {
  const std::string sourcePath = source.path();
  const std::string copyPath = copy.path();
  const FileDescriptor input = source.open(O_RDONLY);
  const struct stat status = statusOf(input, sourcePath);
  if (!S_ISREG(status.st_mode))
    throw Error(quoted(sourcePath) + " changed while it was being copied.");
  FileDescriptor output = createFile(copy);
  copyContent(input, sourcePath, status, output, copyPath);
  requireUnchanged(input, status, sourcePath);
  copyAttributes(input, sourcePath, status, output, copyPath);
  output.close(copyPath);
}

void copyFileOrLink(const Entry& source, const struct stat& status, const Entry& copy) {
  if (S_ISREG(status.st_mode))
    copyFile(source, copy);
  else if (S_ISLNK(status.st_mode))
    copyLink(source, status, copy);
  else
    throw Error(quoted(source.path()) +
                " is neither a file, a directory nor a symbolic link and cannot be copied.");
}

}  // namespace platform::ditto
