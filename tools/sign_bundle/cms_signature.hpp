#pragma once

#include <string>
#include <vector>

#include "tools/sign_bundle/certificate_chain.hpp"
#include "tools/sign_bundle/digest.hpp"

namespace sign_bundle {

struct SignedCodeDirectory {
  DigestAlgorithm algorithm = DigestAlgorithm::sha256;
  std::string blob;
};

enum class TimeStamp { no, yes };

/// Which of the two signed attributes, each of which names every code directory, a signature has.
enum class DirectoryBinding { both, list, digests, none };

/// A detached CMS signature (RFC 5652) over the first of the code directories, in DER. Its signed attributes
/// of the kind `binding` name every code directory, which binds the others to the first. The signer's
/// certificates travel along. With a time stamp, the signer's signature value is stamped by the identity's
/// own authority (RFC 3161). The stated time is the present, or for an expired certificate the last day on
/// which it was valid.
std::string signCodeDirectories(const std::vector<SignedCodeDirectory>& directories,
                                const SigningIdentity& identity, TimeStamp timeStamp,
                                DirectoryBinding binding);

}  // namespace sign_bundle
