#include "tests/fuzz/fuzz_input.hpp"
#include "updater/install/tool_message.hpp"

// A message is valid text, never empty, and has nothing left to trim.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const std::string message = QuorinOstrevalUpdater::text(fuzz::dataOf(data, size), "fallback");
    fuzz::require(!message.empty());
    fuzz::requireText(message);
    fuzz::require(QuorinOstrevalUpdater::text(platform::Data(message), "other") == message);
  });
}
