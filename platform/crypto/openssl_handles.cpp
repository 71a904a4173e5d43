#include "platform/crypto/openssl_handles.hpp"

#include <ctime>
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

std::chrono::system_clock::time_point timeOf(const ASN1_TIME* time) {
  std::tm parts{};
  // Null would mean the present.
  if (time == nullptr || ::ASN1_TIME_to_tm(time, &parts) != 1)
    throw FormatError("it has an invalid date");
  return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

}  // namespace platform::openssl
