#include "tools/sign_bundle/signing_identity.hpp"

#include "platform/crypto/digest.hpp"
#include "tools/sign_bundle/certificate_files.hpp"

namespace sign_bundle {
namespace {

Signer readSigner(const platform::URL& directory, const std::string& name, const std::string& chainName) {
  Signer signer;
  const auto file = directory.appendingPathComponent(name + ".pem");
  const openssl::Certificates own = readCertificates(file);
  if (sk_X509_num(own.get()) != 1)
    throw platform::Error(platform::quoted(file.path()) + " does not hold exactly one certificate.");
  signer.certificate = openssl::Certificate(sk_X509_pop(own.get()));
  signer.key = readKey(directory.appendingPathComponent(name + "_key.pem"));
  signer.chain = readCertificates(directory.appendingPathComponent(chainName + ".pem"));
  return signer;
}

std::string organizationalUnit(const X509& certificate) {
  const X509_NAME* subject = ::X509_get_subject_name(&certificate);
  const int index = ::X509_NAME_get_index_by_NID(subject, NID_organizationalUnitName, -1);
  if (index < 0)
    return {};
  return std::string(openssl::bytesOf(::X509_NAME_ENTRY_get_data(::X509_NAME_get_entry(subject, index))));
}

bool carries(const X509& certificate, const char* extension) {
  return ::X509_get_ext_by_OBJ(&certificate, objectIdentifier(extension).get(), -1) >= 0;
}

}  // namespace

SigningIdentity SigningIdentity::read(const platform::URL& directory) {
  SigningIdentity identity{.leaf = readSigner(directory, "leaf", "chain"),
                           .timeStampAuthority = readSigner(directory, "time_stamp", "time_stamp_chain"),
                           .team = {},
                           .leafDigest = {}};
  const X509& leaf = *identity.leaf.certificate;
  const STACK_OF(X509)* chain = identity.leaf.chain.get();
  identity.team = organizationalUnit(leaf);
  identity.leafDigest =
      platform::digestOf(platform::DigestAlgorithm::sha1, encoded(leaf, ::i2d_X509, "Reading a certificate"));
  identity.isDeveloperID = carries(leaf, kLeafMarker) && sk_X509_num(chain) > 0 &&
                           carries(*sk_X509_value(chain, 0), kIntermediateMarker);
  return identity;
}

}  // namespace sign_bundle
