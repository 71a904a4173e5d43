#include <CommonCrypto/CommonDigest.h>

#include <algorithm>
#include <array>

#include "platform/crypto/digest.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

// The length of one update has 32 bits.
constexpr std::size_t kLargestUpdate = std::size_t{1} << 30U;

void require(int result) {
  if (result != 1)
    throw Error("The digest SHA256 could not be computed.");
}

}  // namespace

struct Digest::Context {
  CC_SHA256_CTX state;
};

Digest::Digest(DigestAlgorithm algorithm) : algorithm_(algorithm), context_(std::make_unique<Context>()) {
  begin();
}

Digest::~Digest() = default;

void Digest::begin() {
  // Signatures are checked by the system; what is left are files, and SHA-256.
  if (algorithm_ != DigestAlgorithm::sha256)
    throw Error("This digest is not available.");
  require(::CC_SHA256_Init(&context_->state));
}

void Digest::update(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, kLargestUpdate);
    require(::CC_SHA256_Update(&context_->state, part.data(), static_cast<CC_LONG>(part.size())));
    bytes.remove_prefix(part.size());
  }
}

std::string Digest::finish() {
  std::array<unsigned char, CC_SHA256_DIGEST_LENGTH> result{};
  require(::CC_SHA256_Final(result.data(), &context_->state));
  begin();
  return {result.begin(), result.end()};
}

}  // namespace platform
