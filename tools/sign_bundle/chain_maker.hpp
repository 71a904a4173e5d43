#pragma once

#include <string>
#include <vector>

#include "platform/files/url.hpp"

namespace sign_bundle {

enum class KeyKind {
  rsa,
  ellipticCurve,
  /// RSA of 1024 bits.
  weak,
};

/// One way in which a chain differs from a good one, for tests of what judges it.
enum class ChainDefect {
  none,
  intermediateWithoutExtension,
  leafWithoutExtension,
  leafWithoutCodeSigningUsage,
  /// The leaf says of no usage that it is meant for it.
  leafWithoutUsage,
  leafKeyNotForSigning,
  leafWithWeakKey,
  /// The leaf names another team behind the first.
  leafWithTwoTeams,
  unknownCriticalExtensionInLeaf,
  unknownCriticalExtensionInIntermediate,
  /// The leaf signs itself; intermediate and root travel along as if they belonged to it.
  selfSignedLeaf,
  /// Another leaf, good as one, signs the leaf.
  leafAsIssuer,
  /// An authority whose certificate allows none below it certifies the intermediate.
  pathTooLong,
  /// The root signs the leaf, with the intermediate left out.
  withoutIntermediate,
  /// Leaf and intermediate ended years ago.
  expired,
};

/// What a leaf is for, by the private extensions that mark it.
enum class LeafKind {
  developerID,
  /// A Developer ID whose owner may sign kernel extensions as well.
  kernelExtensions,
  store,
  development,
};

struct ChainOptions {
  std::string team;
  std::string name = "Sample Developer";
  KeyKind keys = KeyKind::rsa;
  LeafKind leaf = LeafKind::developerID;
  ChainDefect defect = ChainDefect::none;
};

/// Makes a throw-away chain of Developer ID shape in `directory`, which need not exist: `root.pem` (the
/// anchor), `chain.pem` (the certificates above the leaf, lowest first), `leaf.pem`, `leaf_key.pem`, and for
/// time stamps `time_stamp.pem`, `time_stamp_chain.pem` and `time_stamp_key.pem`. Keys are readable by their
/// owner only; those of the authorities are not kept. Nothing that is there is overwritten. Throws
/// `platform::Error`.
void makeChain(const platform::URL& directory, const ChainOptions& options);

}  // namespace sign_bundle
