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

/// Which of the two signed attributes, each of which names every code directory, a signature has.
enum class DirectoryBinding { both, list, digests, none };

/// One way in which a signature differs from a good one, for tests of what judges it.
enum class SignatureDefect {
  none,
  /// The time stamp authority signs as well.
  twoSigners,
  carriedContent,
  withoutSignedAttributes,
  /// The signer's digest is SHA-1.
  weakDigest,
  /// The signer says that what it signed is no data.
  otherContentType,
  /// A time stamp, the second if there is one already, is over something else.
  otherTimeStamp,
  /// The attribute of digests has its values in descending order, as signing tools wrote it from 2018 to
  /// 2020. Not together with a time stamp.
  unsortedDigests,
};

struct MessageOptions {
  bool timeStamp = false;
  DirectoryBinding binding = DirectoryBinding::both;
  SignatureDefect defect = SignatureDefect::none;
};

/// A detached CMS signature (RFC 5652) over the first of the code directories, in DER. Its signed attributes
/// of the kind of binding name every code directory, which binds the others to the first. The signer's
/// certificates travel along. With a time stamp, the signer's signature value is stamped by the identity's
/// own authority (RFC 3161). The stated time is the present, or for an expired certificate the last day on
/// which it was valid.
std::string signCodeDirectories(const std::vector<SignedCodeDirectory>& directories,
                                const SigningIdentity& identity, const MessageOptions& options);

}  // namespace sign_bundle
