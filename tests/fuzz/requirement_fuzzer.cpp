#include "platform/security/requirement.hpp"
#include "tests/fuzz/fuzz_input.hpp"

void fuzz::read(const std::string& bytes) {
  const platform::CodeIdentity code{.place = "code",
                                    .identifier = "com.example.sample",
                                    .teamIdentifier = std::nullopt,
                                    .codeDirectoryHash = std::string(20, 'c'),
                                    .chain = {}};
  const auto requirement = platform::Requirement::parse(bytes);
  const auto clause = requirement.failingClause(code, nullptr);
  fuzz::require(!clause || !clause->empty());
}
