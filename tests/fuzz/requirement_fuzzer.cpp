#include "platform/security/requirement.hpp"
#include "tests/fuzz/fuzz_input.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const platform::CodeIdentity code{.place = "code",
                                      .identifier = "com.example.sample",
                                      .teamIdentifier = std::nullopt,
                                      .codeDirectoryHash = std::string(20, 'c'),
                                      .chain = {}};
    const auto requirement = platform::Requirement::parse(fuzz::bytesOf(data, size));
    const auto clause = requirement.failingClause(code, nullptr);
    fuzz::require(!clause || !clause->empty());
  });
}
