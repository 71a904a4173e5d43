#include "platform/crypto/digest.hpp"

#include <openssl/evp.h>

#include <array>

#include "platform/crypto/openssl_handles.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

struct Implementation {
  const char* name;
  std::size_t size;
};

const Implementation& implementation(DigestAlgorithm algorithm) {
  static constexpr std::array<Implementation, 4> kImplementations{
      {{"SHA1", 20}, {"SHA256", 32}, {"SHA384", 48}, {"SHA512", 64}}};
  return kImplementations.at(static_cast<std::size_t>(algorithm));
}

using Method = openssl::Handle<EVP_MD, &::EVP_MD_free>;

[[noreturn]] void refuse(DigestAlgorithm algorithm) {
  throw Error(std::string("The digest ") + implementation(algorithm).name + " could not be computed.");
}

/// Fetched once: fetching takes longer than digesting a page.
const EVP_MD* method(DigestAlgorithm algorithm) {
  static const std::array<Method, 4> kMethods = [] {
    std::array<Method, 4> methods;
    for (std::size_t index = 0; index < methods.size(); ++index)
      methods.at(index).reset(
          ::EVP_MD_fetch(nullptr, implementation(static_cast<DigestAlgorithm>(index)).name, nullptr));
    return methods;
  }();
  return kMethods.at(static_cast<std::size_t>(algorithm)).get();
}

}  // namespace

std::size_t digestSize(DigestAlgorithm algorithm) noexcept {
  return implementation(algorithm).size;
}

struct Digest::Context {
  openssl::DigestContext handle{::EVP_MD_CTX_new()};
};

Digest::Digest(DigestAlgorithm algorithm) : algorithm_(algorithm), context_(std::make_unique<Context>()) {
  begin();
}

Digest::~Digest() = default;

void Digest::begin() {
  const EVP_MD* chosen = method(algorithm_);
  if (chosen == nullptr || !context_->handle ||
      ::EVP_DigestInit_ex2(context_->handle.get(), chosen, nullptr) != 1)
    refuse(algorithm_);
}

void Digest::update(std::string_view bytes) {
  if (::EVP_DigestUpdate(context_->handle.get(), bytes.data(), bytes.size()) != 1)
    refuse(algorithm_);
}

std::string Digest::finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> result{};
  unsigned length = 0;
  if (::EVP_DigestFinal_ex(context_->handle.get(), result.data(), &length) != 1)
    refuse(algorithm_);
  begin();
  return {result.begin(), result.begin() + length};
}

std::string digestOf(DigestAlgorithm algorithm, std::string_view bytes) {
  Digest digest(algorithm);
  digest.update(bytes);
  return digest.finish();
}

}  // namespace platform
