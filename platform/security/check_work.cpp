#include "platform/security/check_work.hpp"

#include "platform/foundation/error.hpp"

namespace platform {
namespace {

/// An application with 30 GiB of code needs about half of it.
constexpr std::uint64_t kMostParsedBytes = 512U << 20U;

/// One is usual. Each layout takes another pass over the file.
constexpr std::size_t kMostPageLayouts = 4;

}  // namespace

CheckWork::Comparison CheckWork::ofFile(const ItemStatus& file, DigestAlgorithm algorithm,
                                        std::string_view digest) {
  if (file.hasHardLinks) {
    const auto [earlier, isNew] = files_.try_emplace({file.identity, algorithm}, digest);
    if (!isNew)
      return earlier->second == digest ? Comparison::made : Comparison::hopeless;
  }
  comparedBytes_ += file.size;
  return Comparison::needed;
}

CheckWork::Comparison CheckWork::ofPages(const CodeFile& file, const ByteRange& code,
                                         const CodeDirectory& directory) {
  if (file.status().hasHardLinks) {
    auto& layouts = pages_[{file.status().identity, code.offset}];
    const std::string digests = digestOf(DigestAlgorithm::sha256, directory.pageDigests());
    const auto [earlier, isNew] = layouts.try_emplace({directory.strength(), directory.pageSize()}, digests);
    if (!isNew)
      return earlier->second == digests ? Comparison::made : Comparison::hopeless;
    if (layouts.size() > kMostPageLayouts)
      throw Error(platform::quoted(file.path()) + " is signed with pages of too many sizes.");
  }
  comparedBytes_ += code.length;
  return Comparison::needed;
}

void CheckWork::parse(const std::string& path, std::uint64_t bytes) {
  parsedBytes_ += bytes;
  if (parsedBytes_ > kMostParsedBytes)
    throw Error(platform::quoted(path) +
                " cannot be checked: the signatures take more work than those of any real application.");
}

}  // namespace platform
