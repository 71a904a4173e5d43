#include "platform/files/url.hpp"
#include "platform/security/cms_signature.hpp"
#include "tests/fuzz/fuzz_input.hpp"

namespace {

using platform::CodeDirectory;
using platform::TrustAnchors;
using platform::URL;

std::string fileAt(const std::string& path) {
  return std::string(platform::Data::contentsOf(URL::fileURLWithPath(path)).bytes());
}

const std::string kDirectory = QUORIN_FUZZ_DIRECTORY "/cms/";

}  // namespace

// Whatever is changed in a signature, only the signer's own is accepted.
void fuzz::read(const std::string& bytes) {
  static const std::string blob = fileAt(kDirectory + "code_directory");
  static const std::vector<CodeDirectory> directories{CodeDirectory::read(blob)};
  static const TrustAnchors anchors(platform::Certificate::fromPEM(fileAt(kDirectory + "root.pem")));
  const auto chain = platform::verifyCMSSignature(bytes, directories, anchors);
  fuzz::require(chain.size() == 3 && chain.front().subjectField("OU") == "QS7TEAM123");
  fuzz::require(chain.back().sha256Fingerprint() == anchors.roots().front().sha256Fingerprint());
}
