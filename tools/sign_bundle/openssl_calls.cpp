#include "tools/sign_bundle/openssl_objects.hpp"

#include <openssl/err.h>

namespace sign_bundle {
namespace {

std::string lastReason() {
  const unsigned long code = ::ERR_peek_last_error();
  const char* reason = code == 0 ? nullptr : ::ERR_reason_error_string(code);
  std::string text = reason == nullptr ? "no reason was given" : reason;
  ::ERR_clear_error();
  return text;
}

}  // namespace

CryptographyError::CryptographyError(std::string_view step)
    : Error(std::string(step) + " failed: " + lastReason() + ".") {}

ObjectIdentifier objectIdentifier(const char* dottedText) {
  return checked<ObjectIdentifier>(::OBJ_txt2obj(dottedText, 1), "Reading an object identifier");
}

Stream readingStream(std::string_view bytes) {
  return checked<Stream>(::BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), "Opening a stream");
}

Stream memoryStream() {
  return checked<Stream>(::BIO_new(::BIO_s_mem()), "Opening a stream");
}

std::string contentOf(BIO& memoryStream) {
  const char* bytes = nullptr;
  const auto length = BIO_get_mem_data(&memoryStream, &bytes);
  return length <= 0 ? std::string() : std::string(bytes, static_cast<std::size_t>(length));
}

}  // namespace sign_bundle
