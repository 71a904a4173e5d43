#include "tools/sign_bundle/code_digest.hpp"

#include <fcntl.h>
#include <openssl/evp.h>

#include "platform/files/file_descriptor.hpp"
#include "tools/sign_bundle/openssl_objects.hpp"

namespace sign_bundle {
namespace {

constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

using Context = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;

}  // namespace

const evp_md_st* libraryDigest(DigestAlgorithm algorithm) {
  switch (algorithm) {
    case DigestAlgorithm::sha1:
      return ::EVP_sha1();
    case DigestAlgorithm::sha256:
      return ::EVP_sha256();
    case DigestAlgorithm::sha384:
      break;
  }
  return ::EVP_sha384();
}

std::size_t digestSize(DigestAlgorithm algorithm) {
  return static_cast<std::size_t>(::EVP_MD_get_size(libraryDigest(algorithm)));
}

std::string digestOf(std::string_view bytes, DigestAlgorithm algorithm) {
  std::string digest(digestSize(algorithm), '\0');
  succeeded(::EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
                         libraryDigest(algorithm), nullptr),
            "Computing a digest");
  return digest;
}

std::vector<std::string> digestsOfFile(const platform::URL& file,
                                       const std::vector<DigestAlgorithm>& algorithms) {
  const auto descriptor = platform::FileDescriptor::open(file, O_RDONLY | O_NOCTTY | O_NOFOLLOW);
  std::vector<Context> contexts;
  for (const DigestAlgorithm algorithm : algorithms) {
    contexts.push_back(checked<Context>(::EVP_MD_CTX_new(), "Computing a digest"));
    succeeded(::EVP_DigestInit_ex(contexts.back().get(), libraryDigest(algorithm), nullptr),
              "Computing a digest");
  }
  thread_local std::vector<char> piece(kPieceSize);
  while (const std::size_t count = descriptor.read(piece.data(), piece.size(), file.path())) {
    for (const Context& context : contexts)
      succeeded(::EVP_DigestUpdate(context.get(), piece.data(), count), "Computing a digest");
  }
  std::vector<std::string> digests;
  for (std::size_t index = 0; index < algorithms.size(); ++index) {
    std::string& digest = digests.emplace_back(digestSize(algorithms[index]), '\0');
    succeeded(
        ::EVP_DigestFinal_ex(contexts[index].get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr),
        "Computing a digest");
  }
  return digests;
}

}  // namespace sign_bundle
