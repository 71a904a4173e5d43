#pragma once

#include <string>
#include <string_view>

#include "platform/crypto/openssl_handles.hpp"
#include "platform/foundation/error.hpp"

/// Calls of OpenSSL whose failures are thrown.
namespace sign_bundle {

namespace openssl = platform::openssl;

/// A failed call. The sentence names the step and OpenSSL's reason.
class CryptographyError : public platform::Error {
 public:
  explicit CryptographyError(std::string_view step);
};

/// Takes ownership of `object`; throws for a null pointer.
template <typename Handle>
Handle checked(typename Handle::pointer object, std::string_view step) {
  if (object == nullptr)
    throw CryptographyError(step);
  return Handle(object);
}

/// For calls that return a positive number on success.
inline void succeeded(long result, std::string_view step) {
  if (result <= 0)
    throw CryptographyError(step);
}

openssl::Object objectIdentifier(const char* dotted);

/// The DER encoding of an object; `write` is OpenSSL's i2d function for its type.
template <typename Object, typename Write>
std::string encoded(const Object& object, Write write, std::string_view step) {
  unsigned char* bytes = nullptr;
  const int length = write(&object, &bytes);
  if (length < 0)
    throw CryptographyError(step);
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  OPENSSL_free(bytes);
  return text;
}

inline const unsigned char* unsignedBytes(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

}  // namespace sign_bundle
