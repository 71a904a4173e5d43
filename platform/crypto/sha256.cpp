#include "platform/crypto/sha256.hpp"

#include <openssl/evp.h>

#include "platform/crypto/library_configuration.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

void require(int result) {
  if (result != 1)
    throw Error("The SHA-256 digest could not be computed.");
}

}  // namespace

void SHA256::Free::operator()(evp_md_ctx_st* context) const noexcept {
  ::EVP_MD_CTX_free(context);
}

SHA256::SHA256() : context_(::EVP_MD_CTX_new()) {
  require(context_ != nullptr ? 1 : 0);
  require(::EVP_DigestInit_ex(context_.get(), ::EVP_sha256(), nullptr));
}

void SHA256::update(std::string_view data) {
  require(::EVP_DigestUpdate(context_.get(), data.data(), data.size()));
}

SHA256Digest SHA256::finalize() {
  SHA256Digest digest{};
  require(::EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr));
  return digest;
}

std::string hexadecimal(const SHA256Digest& digest) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

}  // namespace platform
