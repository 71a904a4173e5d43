#pragma once

#include <string>
#include <vector>

#include "platform/crypto/digest.hpp"
#include "tools/sign_bundle/signing_identity.hpp"

namespace sign_bundle {

struct SignedCodeDirectory {
  platform::DigestAlgorithm algorithm = platform::DigestAlgorithm::sha256;
  std::string blob;
};

/// A single defect of an otherwise good signature, for tests.
enum class SignatureDefect {
  none,
  /// The time stamp authority signs as well.
  twoSigners,
  carriedContent,
  withoutSignedAttributes,
  /// The signer's digest is SHA-1.
  weakDigest,
  /// The content type of the signed content is not data.
  otherContentType,
  /// A time stamp, the second if there is one already, is for other bytes.
  otherTimeStamp,
  /// The values of the digest attribute are in descending order, as signing tools wrote them from 2018 to
  /// 2020. Cannot be combined with a time stamp.
  unsortedDigests,
};

struct MessageOptions {
  bool timeStamp = false;
  SignatureDefect defect = SignatureDefect::none;
};

/// A detached CMS signature (RFC 5652) of the first code directory, in DER. Signed attributes list all code
/// directories and so bind the others. The message contains the signer's certificates. A time stamp (RFC
/// 3161) is made by the identity's own authority. The signing time is the present, or for an expired
/// certificate the last day on which it was valid.
std::string signCodeDirectories(const std::vector<SignedCodeDirectory>& directories,
                                const SigningIdentity& identity, const MessageOptions& options);

}  // namespace sign_bundle
