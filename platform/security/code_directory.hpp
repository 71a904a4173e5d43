#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/crypto/digest.hpp"
#include "platform/security/code_signature_format.hpp"

namespace platform {

/// The table of digests that a signature binds, with what the code says about itself. A view of the bytes
/// that it was read from.
class CodeDirectory {
 public:
  /// Reads the whole blob. Throws `FormatError`; afterwards every digest and text lies inside the blob, and
  /// the pages cover the code up to its limit exactly.
  static CodeDirectory read(std::string_view blob);

  std::string_view blob() const noexcept { return blob_; }
  const std::string& identifier() const noexcept { return identifier_; }
  const std::optional<std::string>& teamIdentifier() const noexcept { return teamIdentifier_; }
  bool isAdHoc() const noexcept { return (flags_ & code_flag::kAdHoc) != 0; }

  /// How the digests of this directory are made.
  DigestAlgorithm algorithm() const noexcept { return algorithm_; }
  /// 0 for SHA-1, which binds nothing any more, and more for a stronger digest.
  int strength() const noexcept { return strength_; }
  /// The digest of `bytes` in the form of the directory's slots.
  std::string digestOf(std::string_view bytes) const;

  /// The number of leading bytes of the code that the pages cover.
  std::uint64_t codeLimit() const noexcept { return codeLimit_; }
  /// Bytes in a page; the code limit where there is one page for all.
  std::uint64_t pageSize() const noexcept { return pageSize_; }
  std::uint32_t pageCount() const noexcept { return pageCount_; }
  std::string_view pageDigest(std::uint32_t page) const;
  /// Those of all pages, in their order.
  std::string_view pageDigests() const;

  std::uint32_t specialSlotCount() const noexcept { return specialSlotCount_; }
  /// The digest of a component; nothing when the directory says that there is none.
  std::optional<std::string_view> specialDigest(std::uint32_t slot) const;

  /// The digest of the whole directory by its own algorithm, and its first 20 bytes, by which code is known.
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
