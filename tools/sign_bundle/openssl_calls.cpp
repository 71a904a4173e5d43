#include "tools/sign_bundle/openssl_calls.hpp"

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

openssl::Object objectIdentifier(const char* dotted) {
  return checked<openssl::Object>(::OBJ_txt2obj(dotted, 1), "Reading an object identifier");
}

}  // namespace sign_bundle
