#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/requirement.hpp"
#include "tests/fuzz/fuzz_input.hpp"

void fuzz::read(const std::string& bytes) {
  for (const auto& [number, blob] : platform::readEmbeddedSignature(bytes)) {
    if (number == platform::slot::kCodeDirectory)
      platform::CodeDirectory::read(blob);
    if (number != platform::slot::kRequirements)
      continue;
    if (const auto requirement = platform::designatedRequirement(blob))
      fuzz::requireText(platform::readCompiledRequirement(*requirement).text);
  }
}
