#include "rehearse/files/trees.hpp"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/crypto/digest.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"

namespace fs = std::filesystem;

namespace rehearse {

std::string sentenceOf(const std::exception& failure) {
  const auto* const operation = dynamic_cast<const fs::filesystem_error*>(&failure);
  return operation == nullptr
             ? failure.what()
             : platform::sentence(platform::quoted(operation->path1().native()) + " could not be used",
                                  operation->code().message());
}

std::string digestWhereLong(const std::string& content) {
  if (content.size() <= 100)
    return content;
  return std::to_string(content.size()) + " bytes with SHA-256 " +
         platform::hexadecimal(platform::digestOf(platform::DigestAlgorithm::sha256, content));
}

void writeFile(const fs::path& path, std::string_view content) {
  fs::create_directories(path.parent_path());
  std::ofstream stream(path, std::ios::binary);
  stream << content;
  if (!stream.flush())
    throw std::runtime_error("cannot write " + path.native());
}

std::string readFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream)
    throw std::runtime_error("cannot read " + path.native());
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

void removeItem(const fs::path& path) {
  if (fs::exists(fs::symlink_status(path)))
    platform::NSFileManager::defaultManager().removeItemAtURL(platform::URL::fileURLWithPath(path.native()));
}

void copyTree(const fs::path& from, const fs::path& to) {
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

Inventory inventory(const fs::path& root) {
  return inventory(root, [](const fs::path& file) { return digestWhereLong(readFile(file)); });
}

Inventory inventory(const fs::path& root, const std::function<std::string(const fs::path&)>& contentOf) {
  Inventory entries;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const auto status = entry.symlink_status();
    std::ostringstream description;
    if (fs::is_symlink(status))
      description << "link to " << fs::read_symlink(entry.path()).native();
    else if (fs::is_directory(status))
      description << "directory " << std::oct << static_cast<unsigned>(status.permissions());
    else if (fs::is_regular_file(status))
      description << "file " << std::oct << static_cast<unsigned>(status.permissions()) << ' '
                  << contentOf(entry.path());
    else
      description << "other";
    entries.emplace(platform::canonicallyDecomposed(entry.path().lexically_relative(root).native()),
                    description.str());
  }
  return entries;
}

}  // namespace rehearse
