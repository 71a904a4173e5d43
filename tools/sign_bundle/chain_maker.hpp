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

/// A single defect of an otherwise good chain, for tests.
enum class ChainDefect {
  none,
  intermediateWithoutExtension,
  leafWithoutExtension,
  leafWithoutCodeSigningUsage,
  /// The leaf has no extended key usage.
  leafWithoutUsage,
  leafKeyNotForSigning,
  leafWithWeakKey,
  /// The leaf's subject has a second organizational unit.
  leafWithTwoTeams,
  unknownCriticalExtensionInLeaf,
  unknownCriticalExtensionInIntermediate,
  /// The leaf is self-signed, but the chain file contains intermediate and root.
  selfSignedLeaf,
  /// The leaf is issued by another leaf.
  leafAsIssuer,
  /// The certificate above the leaf's issuer does not allow another authority below it.
  pathTooLong,
  /// The leaf is issued by the root.
  withoutIntermediate,
  /// Leaf and intermediate expired years ago.
  expired,
};

/// The purpose of a leaf, which private extensions mark.
enum class LeafKind {
  developerID,
  /// A Developer ID that may sign kernel extensions as well.
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

/// Creates a throw-away Developer ID chain in `directory`, which is created if needed: `root.pem` (the
/// anchor), `chain.pem` (the certificates above the leaf, lowest first), `leaf.pem`, `leaf_key.pem`, and for
/// time stamps `time_stamp.pem`, `time_stamp_chain.pem` and `time_stamp_key.pem`. Keys are readable by their
/// owner only; those of the authorities are discarded. Never overwrites a file. Throws `platform::Error`.
void makeChain(const platform::URL& directory, const ChainOptions& options);

}  // namespace sign_bundle
