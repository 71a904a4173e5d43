#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// The digests of FIPS 180-4 that signatures use.
enum class DigestAlgorithm { sha1, sha256, sha384, sha512 };

/// The length of a digest, in bytes.
std::size_t digestSize(DigestAlgorithm algorithm) noexcept;

/// Computes the digests of any number of messages, one after the other. Throws `Error` when the library
/// fails. Different threads use different objects.
class Digest {
 public:
  explicit Digest(DigestAlgorithm algorithm);
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  ~Digest();

  void update(std::string_view bytes);

  /// The raw digest of all bytes since the last call; the next message begins.
  std::string finish();

 private:
  struct Context;

  void begin();

  DigestAlgorithm algorithm_;
  std::unique_ptr<Context> context_;
};

/// The raw digest of one message.
std::string digestOf(DigestAlgorithm algorithm, std::string_view bytes);

}  // namespace platform
