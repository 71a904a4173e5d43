#include "rehearse/files/private_prefix.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/crypto/digest.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/trees.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// Where a program of the installation is in the copy.
constexpr std::array<std::pair<const char*, const char*>, 4> kPrograms{{
    {"bin/QuorinOstrevalUpdater", "bin/QuorinOstrevalUpdater"},
    {"libexec/quorin/hdiutil", "libexec/quorin/hdiutil"},
    {"libexec/quorin/ditto", "libexec/quorin/ditto"},
    {"libexec/quorin/judge_start", "libexec/quorin/open"},
}};

constexpr fs::perms kProgramPermissions = fs::perms(0755);
/// Roots that others may change are not trusted, whatever the umask is.
constexpr fs::perms kRootPermissions = fs::perms(0644);

void copyFile(const fs::path& from, const fs::path& to, fs::perms permissions) {
  std::error_code failure;
  fs::create_directories(to.parent_path(), failure);
  if (!failure)
    fs::permissions(to.parent_path(), kProgramPermissions, failure);
  if (!failure)
    fs::copy_file(from, to, failure);
  if (!failure)
    fs::permissions(to, permissions, failure);
  if (failure)
    throw platform::SystemError(platform::quoted(from.native()) + " could not be copied", failure.value());
}

std::vector<fs::path> rootsIn(const fs::path& directory) {
  std::vector<fs::path> roots;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(directory, failure))
    if (entry.path().extension() == ".pem")
      roots.push_back(entry.path());
  // Without the directory no root is trusted, and a signature's refusal says so.
  std::ranges::sort(roots);
  return roots;
}

}  // namespace

PrivatePrefix::PrivatePrefix(fs::path directory, const std::vector<fs::path>& anchors,
                             const fs::path& installation)
    : directory_(std::move(directory)) {
  for (const auto& [from, to] : kPrograms)
    copyFile(installation / from, directory_ / to, kProgramPermissions);
  for (const fs::path& root : rootsIn(installation / "share/quorin/anchors"))
    copyFile(root, this->anchors() / root.filename(), kRootPermissions);
  for (std::size_t index = 0; index < anchors.size(); ++index)
    copyFile(anchors[index], this->anchors() / ("given-" + std::to_string(index + 1) + ".pem"),
             kRootPermissions);
}

std::string PrivatePrefix::digest() const {
  platform::Digest state(platform::DigestAlgorithm::sha256);
  const auto add = [&state](const fs::path& file) {
    const std::string content = readFile(file);
    state.update(std::to_string(content.size()) + " ");
    state.update(content);
  };
  for (const auto& program : kPrograms)
    add(directory_ / program.second);
  for (const fs::path& root : rootsIn(anchors()))
    add(root);
  return platform::hexadecimal(state.finish());
}

}  // namespace rehearse
