#include "platform/formats/json.hpp"
#include "tests/fuzz/fuzz_input.hpp"

namespace {

struct Record {
  static Record decode(const platform::KeyedDecodingContainer& container) {
    fuzz::requireText(container.decodeString("text"));
    container.decodeBool("truth");
    return {};
  }
};

}  // namespace

// What is read is valid text, and a refusal is a sentence.
void fuzz::read(const std::string& bytes) {
  platform::JSONDecoder().decode<Record>(platform::Data(bytes));
}
