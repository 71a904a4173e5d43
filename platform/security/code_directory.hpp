#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/crypto/digest.hpp"
#include "platform/security/code_signature_format.hpp"

namespace platform {

/// A code directory: the code's identifiers and flags, and the digests of its pages and of the signature's
/// other components. A view: the blob that it was read from must outlive it.
class CodeDirectory {
 public:
  /// Reads the whole blob. Throws `FormatError`. Ensures that all digests and strings are inside the blob and
  /// that the pages cover exactly the code up to `codeLimit()`.
  static CodeDirectory read(std::string_view blob);

  std::string_view blob() const noexcept { return blob_; }
  const std::string& identifier() const noexcept { return identifier_; }
  const std::optional<std::string>& teamIdentifier() const noexcept { return teamIdentifier_; }
  bool hasHardenedRuntime() const noexcept { return (flags_ & code_flag::kHardenedRuntime) != 0; }
  bool isAdHoc() const noexcept { return (flags_ & code_flag::kAdHoc) != 0; }

  /// The algorithm of this directory's digests.
  DigestAlgorithm algorithm() const noexcept { return algorithm_; }
  /// 0 for SHA-1, which is too weak to prove anything; greater for stronger digests.
  int strength() const noexcept { return strength_; }
  /// The digest of `bytes`, truncated as in the directory's slots.
  std::string digestOf(std::string_view bytes) const;

  /// The number of leading bytes of the code that the pages cover.
  std::uint64_t codeLimit() const noexcept { return codeLimit_; }
  /// In bytes; equal to the code limit when the code is a single page.
  std::uint64_t pageSize() const noexcept { return pageSize_; }
  std::uint32_t pageCount() const noexcept { return pageCount_; }
  /// Requires `page < pageCount()`.
  std::string_view pageDigest(std::uint32_t page) const;
  /// The digests of all pages, in order.
  std::string_view pageDigests() const;

  std::uint32_t specialSlotCount() const noexcept { return specialSlotCount_; }
  /// The digest of the component in `slot`; nothing when the directory says that there is no such component.
  std::optional<std::string_view> specialDigest(std::uint32_t slot) const;

  /// The digest of the whole directory with its own algorithm, and its first 20 bytes, which identify code.
  std::string fullDigest() const;
  std::string codeDirectoryHash() const { return fullDigest().substr(0, kCodeDirectoryHashSize); }

 private:
  CodeDirectory() = default;

  std::string_view blob_;
  std::uint32_t flags_ = 0;
  std::string identifier_;
  std::optional<std::string> teamIdentifier_;
  DigestAlgorithm algorithm_ = DigestAlgorithm::sha256;
  int strength_ = 0;
  std::size_t digestLength_ = 0;
  std::uint64_t codeLimit_ = 0;
  std::uint64_t pageSize_ = 0;
  std::uint32_t pageCount_ = 0;
  std::uint32_t specialSlotCount_ = 0;
  std::uint64_t digestOffset_ = 0;
};

}  // namespace platform
