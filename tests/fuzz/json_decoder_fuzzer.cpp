#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/foundation/json.hpp"
#include "platform/foundation/text.hpp"

namespace {

void requireText(const std::string& text) {
  if (!platform::stringFromUTF8(platform::Data(text)))
    std::abort();
}

struct Record {
  static Record decode(const platform::KeyedDecodingContainer& container) {
    requireText(container.decodeString("text"));
    container.decodeBool("truth");
    return {};
  }
};

}  // namespace

// What is read is valid text, and a refusal is a sentence.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  try {
    platform::JSONDecoder().decode<Record>(platform::Data(std::string(bytes, bytes + size)));
  } catch (const platform::DecodingError& error) {
    requireText(error.localizedDescription());
  }
  return 0;
}
