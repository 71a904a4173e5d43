#include "platform/security/slice_verification.hpp"

#include <algorithm>
#include <set>

#include "platform/security/at_place.hpp"
#include "platform/security/cms_signature.hpp"

namespace platform {
namespace {

constexpr std::uint64_t kPieceSize = 256U << 10U;
constexpr std::uint64_t kStepSize = 4U << 20U;

/// All code directories must describe the same code with different digests, at least one stronger than SHA-1.
void requireConsistentDirectories(const SignedSlice& slice) {
  const CodeDirectory& strongest = slice.strongestDirectory();
  if (strongest.strength() == 0)
    throw FormatError("its signature uses only SHA-1, which is too weak");
  std::set<int> strengths;
  for (const CodeDirectory& directory : slice.directories) {
    if (!strengths.insert(directory.strength()).second)
      throw FormatError("its signature has two code directories with the same digest");
    if (directory.identifier() != strongest.identifier() ||
        directory.teamIdentifier() != strongest.teamIdentifier() ||
        directory.isAdHoc() != strongest.isAdHoc())
      throw FormatError("its code directories describe different code");
  }
}

/// The signer's certificate chain; empty for code signed ad hoc.
std::vector<Certificate> verifySigner(const SignedSlice& slice, AnchorSource& anchors) {
  const auto message = slice.components.find(slot::kSignature);
  const std::string_view signature = message == slice.components.end() ? std::string_view() : message->second;
  const CodeDirectory& directory = slice.strongestDirectory();
  if (signature.empty() != directory.isAdHoc())
    throw FormatError(signature.empty() ? "its signature lacks the signer"
                                        : "its signature has a signer although it is ad hoc");
  if (signature.empty())
    return {};
  std::vector<Certificate> chain = verifyCMSSignature(signature, slice.directories, anchors.anchors());
  if (directory.teamIdentifier() && directory.teamIdentifier() != chain.front().subjectField("OU"))
    throw FormatError("its team is not that of the certificate of \"" + chain.front().displayName() + "\"");
  return chain;
}

std::string_view nameOf(std::uint32_t number) {
  switch (number) {
    case slot::kInfo:
      return "Info.plist";
    case slot::kRequirements:
      return "the list of requirements";
    case slot::kResources:
      return "the resource seal";
    case slot::kEntitlements:
      return "the list of entitlements";
    default:
      return "a component of the signature";
  }
}

void verifySpecialSlot(const CodeDirectory& directory, std::uint32_t number, const std::string* component) {
  const std::optional<std::string_view> digest = directory.specialDigest(number);
  const std::string name(nameOf(number));
  if (component == nullptr && digest)
    throw FormatError(name + " is missing");
  if (component != nullptr && !digest && number <= slot::kLastKnownSpecial)
    throw FormatError(name + " was added after signing");
  if (component != nullptr && digest && directory.digestOf(*component) != *digest)
    throw FormatError(name + " was changed after signing");
}

void verifySpecialSlots(const SignedSlice& slice, const BoundFiles* files) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const std::uint32_t last = std::max(directory.specialSlotCount(), slot::kLastKnownSpecial);
  for (std::uint32_t number = 1; number <= last; ++number) {
    const auto found = slice.components.find(number);
    const std::string* component = found == slice.components.end() ? nullptr : &found->second;
    if (number == slot::kInfo && files != nullptr)
      component = &files->information;
    else if (number == slot::kResources && files != nullptr)
      component = &files->resources;
    else if (number == slot::kInfo && slice.informationSection && directory.specialDigest(number))
      // Without a digest of its own, the section is covered by its pages.
      component = &*slice.informationSection;
    verifySpecialSlot(directory, number, component);
  }
}

[[noreturn]] void refusePage(const SignedSlice& slice, std::uint64_t offset) {
  throw SecurityError(errSecCSSignatureFailed, slice.place + " was changed after signing, at byte " +
                                                   std::to_string(slice.code.offset + offset) +
                                                   " of the file.");
}

/// One buffer per thread; allocating one for each file would cost more than reading a small file.
std::span<char> pieceBuffer() {
  static thread_local std::string buffer(kPieceSize, '\0');
  return buffer;
}

/// For small pages: reads several at once.
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

const TrustAnchors& AnchorSource::anchors() {
  if (!anchors_)
    anchors_ = TrustAnchors::inDirectory(directory_);
  return *anchors_;
}

CodeIdentity verifySlice(const SignedSlice& slice, const BoundFiles* files, AnchorSource& anchors) {
  return atPlace(slice.place, errSecCSSignatureFailed, [&] {
    const CodeDirectory& directory = slice.strongestDirectory();
    requireConsistentDirectories(slice);
    if (directory.codeLimit() != slice.code.length)
      throw FormatError("the pages of the code directory do not cover the code");
    CodeIdentity identity{.place = slice.place,
                          .identifier = directory.identifier(),
                          .teamIdentifier = directory.teamIdentifier(),
                          .codeDirectoryHash = directory.codeDirectoryHash(),
                          .chain = verifySigner(slice, anchors)};
    verifySpecialSlots(slice, files);
    return identity;
  });
}

void submitPageChecks(const std::shared_ptr<const SignedCode>& code, const SignedSlice& slice,
                      CheckWork& work, WorkerPool& pool) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const CheckWork::Comparison comparison = work.ofPages(*code->file, slice.code, directory);
  if (comparison == CheckWork::Comparison::made)
    return;
  if (comparison == CheckWork::Comparison::hopeless) {
    // As a job, so that a failure of the earlier comparison is reported first.
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
