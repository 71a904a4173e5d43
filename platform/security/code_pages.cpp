#include "platform/security/code_pages.hpp"

#include <algorithm>

#include "platform/security/at_place.hpp"

namespace platform {
namespace {

constexpr std::uint64_t kPieceSize = 256U << 10U;
constexpr std::uint64_t kStepSize = 4U << 20U;

[[noreturn]] void refusePage(const SignedSlice& slice, std::uint64_t offset) {
  throw SecurityError(errSecCSSignatureFailed, slice.place + " was changed after signing, at byte " +
                                                   std::to_string(slice.code.offset + offset) +
                                                   " of the file.");
}

/// The thread's own memory for reading; allocating it for every file would cost more than small files do.
std::span<char> pieceBuffer() {
  static thread_local std::string buffer(kPieceSize, '\0');
  return buffer;
}

/// Small pages: several of them are read in one go.
void checkPages(const ByteSource& file, const SignedSlice& slice, std::uint32_t first, std::uint32_t end) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const std::uint64_t pageSize = directory.pageSize();
  const auto pagesInPiece = static_cast<std::uint32_t>(kPieceSize / pageSize);
  Digest digest(directory.algorithm());
  while (first < end) {
    const std::uint32_t pages = std::min(pagesInPiece, end - first);
    const std::uint64_t begin = first * pageSize;
    const std::uint64_t length = std::min(pages * pageSize, directory.codeLimit() - begin);
    const std::span<char> piece = pieceBuffer().first(length);
    file.readAt(slice.code.offset + begin, piece);
    for (std::uint32_t page = 0; page < pages; ++page) {
      const std::uint64_t offset = page * pageSize;
      digest.update({piece.data() + offset, std::min(pageSize, length - offset)});
      const std::string_view expected = directory.pageDigest(first + page);
      if (std::string_view(digest.finish()).substr(0, expected.size()) != expected)
        refusePage(slice, begin + offset);
    }
    first += pages;
  }
}

void checkLargePage(const ByteSource& file, const SignedSlice& slice, std::uint32_t page) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const std::uint64_t begin = page * directory.pageSize();
  const ByteRange range{slice.code.offset + begin,
                        std::min(directory.pageSize(), directory.codeLimit() - begin)};
  const std::string_view expected = directory.pageDigest(page);
  if (std::string_view(digestOfRange(file, range, directory.algorithm())).substr(0, expected.size()) !=
      expected)
    refusePage(slice, begin);
}

}  // namespace

void submitPageChecks(const std::shared_ptr<const SignedCode>& code, const SignedSlice& slice,
                      CheckWork& work, WorkerPool& pool) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const CheckWork::Comparison comparison = work.ofPages(*code->file, slice.code, directory);
  if (comparison == CheckWork::Comparison::made)
    return;
  if (comparison == CheckWork::Comparison::hopeless) {
    // As a step, so that the earlier comparison is reported when it is the one that fails.
    pool.submit([code, &slice] {
      throw SecurityError(errSecCSSignatureFailed, slice.place + " was changed after signing.");
    });
    return;
  }
  const std::uint32_t count = directory.pageCount();
  const bool large = directory.pageSize() > kPieceSize;
  const auto pagesInStep =
      large ? 1U : static_cast<std::uint32_t>(kStepSize / std::max<std::uint64_t>(directory.pageSize(), 1));
  for (std::uint32_t first = 0; first < count; first += std::min(pagesInStep, count - first)) {
    const std::uint32_t end = first + std::min(pagesInStep, count - first);
    pool.submit([code, &slice, first, end, large] {
      atPlace(slice.place, errSecCSSignatureFailed, [&] {
        if (large)
          checkLargePage(*code->file, slice, first);
        else
          checkPages(*code->file, slice, first, end);
      });
    });
  }
}

std::string digestOfRange(const ByteSource& source, const ByteRange& range, DigestAlgorithm algorithm) {
  Digest digest(algorithm);
  const std::span<char> buffer = pieceBuffer();
  for (std::uint64_t done = 0; done < range.length;) {
    const std::span<char> piece = buffer.first(std::min<std::uint64_t>(buffer.size(), range.length - done));
    source.readAt(range.offset + done, piece);
    digest.update({piece.data(), piece.size()});
    done += piece.size();
  }
  return digest.finish();
}

}  // namespace platform
