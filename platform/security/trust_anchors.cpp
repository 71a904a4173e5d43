#include "platform/security/trust_anchors.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::uint64_t kLargestFile = 1U << 20U;

template <typename Reason>
[[noreturn]] void refuse(const std::string& path, const Reason& reason) {
  throw SecurityError(errSecCSSignatureFailed,
                      sentence("The trusted roots in " + platform::quoted(path) + " cannot be used", reason));
}

/// Rejects an item that another user may have written.
void requirePrivate(const FileDescriptor& item, const std::string& path) {
  struct stat status {};
  if (::fstat(item.get(), &status) != 0)
    refuse(path, reasonOf(errno));
  if (status.st_uid != 0 && status.st_uid != ::geteuid())
    refuse(path, "they belong to another user");
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    refuse(path, "others may change them");
}

void readRoots(const Directory& directory, const std::string& name, std::vector<Certificate>& roots) {
  const std::string path = directory.pathOf(name);
  const CodeFile file(directory.entry(name));
  requirePrivate(file.descriptor(), path);
  if (file.size() > kLargestFile)
    refuse(path, "the file is too large");
  for (Certificate& root : Certificate::fromPEM(file.read(0, file.size()))) {
    if (!root.isRoot())
      refuse(path, "one of them is not a self-signed root");
    roots.push_back(std::move(root));
  }
}

}  // namespace

TrustAnchors TrustAnchors::inDirectory(const URL& url) {
  std::vector<Certificate> roots;
  try {
    if (!Directory::isThere(url))
      return TrustAnchors({});
    const Directory directory = Directory::open(url, Directory::Links::refused);
    requirePrivate(directory.descriptor(), url.path());
    for (const ListedItem& entry : directory.entries()) {
      if (entry.name.ends_with(".pem"))
        readRoots(directory, entry.name, roots);
    }
  } catch (const SecurityError&) {
    throw;
  } catch (const Error& error) {
    refuse(url.path(), error);
  }
  return TrustAnchors(std::move(roots));
}

}  // namespace platform
