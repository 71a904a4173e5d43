#include "rehearse/proof/material.hpp"

#include <limits>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// Every digest of the seal's second form is in the key "hash2" of a dictionary; links and nested code have
/// others.
bool isSealedFile(const platform::PropertyList& rule) {
  return rule.valueForKey("hash2") != nullptr && rule.valueForKey("symlink") == nullptr &&
         rule.valueForKey("optional") == nullptr;
}

}  // namespace

std::string sealedFileOf(const fs::path& application) {
  const auto seal = platform::NSPropertyListSerialization::propertyListWithData(platform::Data::contentsOf(
      platform::URL::fileURLWithPath((application / "Contents/_CodeSignature/CodeResources").native())));
  std::string file = "Contents/Info.plist";
  std::uintmax_t smallest = std::numeric_limits<std::uintmax_t>::max();
  const platform::PropertyList* files = seal.valueForKey("files2");
  if (files == nullptr || files->dictionary() == nullptr)
    return file;
  for (const auto& [name, rule] : *files->dictionary()) {
    const fs::path path = application / "Contents" / name;
    std::error_code missing;
    if (!isSealedFile(rule) || !fs::is_regular_file(fs::symlink_status(path, missing)))
      continue;
    const std::uintmax_t size = fs::file_size(path, missing);
    if (!missing && size != 0 && size < smallest) {
      smallest = size;
      file = "Contents/" + name;
    }
  }
  return file;
}

}  // namespace rehearse
