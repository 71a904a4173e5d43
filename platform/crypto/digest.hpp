#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// The digests of FIPS 180-4 that signatures use.
enum class DigestAlgorithm { sha1, sha256, sha384, sha512 };

/// The bytes of a whole digest.
std::size_t digestSize(DigestAlgorithm algorithm) noexcept;

/// A digest under way. One object serves for any number of messages, one after the other.
class Digest {
 public:
  explicit Digest(DigestAlgorithm algorithm);
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  ~Digest();

  void update(std::string_view bytes);

  /// The digest of what was added since the last call, in its raw bytes.
  std::string finish();

 private:
  struct Context;

  void begin();

  DigestAlgorithm algorithm_;
  std::unique_ptr<Context> context_;
};

/// The digest of one message, in its raw bytes.
std::string digestOf(DigestAlgorithm algorithm, std::string_view bytes);

}  // namespace platform
