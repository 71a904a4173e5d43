#include "platform/crypto/openssl_handles.hpp"

#include <limits>
#include <string>

#include "platform/foundation/error.hpp"

namespace platform::openssl {

Bio bytesStream(std::string_view bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw FormatError("it is too long");
  Bio stream(::BIO_new_mem_buf(bytes.empty() ? "" : bytes.data(), static_cast<int>(bytes.size())));
  if (!stream)
    throw Error("Out of memory.");
  return stream;
}

Object objectIdentifier(std::string_view dotted) {
  return Object(::OBJ_txt2obj(std::string(dotted).c_str(), 1));
}

}  // namespace platform::openssl
