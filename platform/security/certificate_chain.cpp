#include "platform/security/certificate_chain.hpp"

#include "platform/security/security_error.hpp"

namespace platform {
namespace {

/// At least RSA keys of 2048 bits and digests as strong as SHA-224. A root's signature over itself proves
/// nothing and may be weaker.
constexpr int kSecurityLevel = 2;

constexpr int kLongestChain = 8;

/// The arc of the extensions that mark the platform's certificates with their purpose and the kind of issuer.
/// Requirements test them; they restrict nothing by themselves.
constexpr std::string_view kMarkerArc = "1.2.840.113635.100.6";

std::string_view contentOf(const ASN1_OBJECT* identifier) {
  return {reinterpret_cast<const char*>(::OBJ_get0_data(identifier)), ::OBJ_length(identifier)};
}

/// A byte prefix is a prefix of whole components: in DER, each ends with its first byte below 0x80.
bool isMarker(X509_EXTENSION* extension) {
  static const openssl::Object arc = openssl::objectIdentifier(kMarkerArc);
  const auto* identifier = ::X509_EXTENSION_get_object(extension);
  return arc && contentOf(identifier).starts_with(contentOf(arc.get())) &&
         contentOf(identifier).size() > contentOf(arc.get()).size();
}

bool everyCriticalExtensionIsKnown(X509* certificate) {
  for (int index = 0; index < ::X509_get_ext_count(certificate); ++index) {
    X509_EXTENSION* extension = ::X509_get_ext(certificate, index);
    if (::X509_EXTENSION_get_critical(extension) != 0 && ::X509_supported_extension(extension) != 1 &&
        !isMarker(extension))
      return false;
  }
  return true;
}

int judge(int valid, X509_STORE_CTX* context) {
  if (valid == 1 || ::X509_STORE_CTX_get_error(context) != X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION)
    return valid;
  X509* certificate = ::X509_STORE_CTX_get_current_cert(context);
  if (certificate == nullptr || !everyCriticalExtensionIsKnown(certificate))
    return 0;
  ::X509_STORE_CTX_set_error(context, X509_V_OK);
  return 1;
}

std::string reasonFor(int error) {
  switch (error) {
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
      return "its certificates do not lead to a trusted root";
    default:
      return std::string("its certificates are not valid (") + ::X509_verify_cert_error_string(error) + ")";
  }
}

}  // namespace

openssl::Store anchorStore(const TrustAnchors& anchors) {
  openssl::Store store(::X509_STORE_new());
  if (!store || ::X509_STORE_set_flags(store.get(), X509_V_FLAG_NO_CHECK_TIME) != 1)
    throw Error("There is not enough memory.");
  ::X509_STORE_set_verify_cb(store.get(), &judge);
  for (const Certificate& root : anchors.roots()) {
    if (::X509_STORE_add_cert(store.get(), root.handle()) != 1)
      throw Error("A trusted root could not be used.");
  }
  return store;
}

std::vector<Certificate> chainToAnchor(X509* leaf, STACK_OF(X509) * others, const TrustAnchors& anchors) {
  const openssl::Store store = anchorStore(anchors);
  const openssl::StoreContext context(::X509_STORE_CTX_new());
  if (!context || ::X509_STORE_CTX_init(context.get(), store.get(), leaf, others) != 1)
    throw Error("There is not enough memory.");
  X509_VERIFY_PARAM* parameters = ::X509_STORE_CTX_get0_param(context.get());
  ::X509_VERIFY_PARAM_set_auth_level(parameters, kSecurityLevel);
  ::X509_VERIFY_PARAM_set_depth(parameters, kLongestChain);
  if (::X509_verify_cert(context.get()) != 1)
    throw FormatError(reasonFor(::X509_STORE_CTX_get_error(context.get())));
  std::vector<Certificate> chain;
  STACK_OF(X509)* certificates = ::X509_STORE_CTX_get0_chain(context.get());
  chain.reserve(static_cast<std::size_t>(sk_X509_num(certificates)));
  for (int index = 0; index < sk_X509_num(certificates); ++index)
    chain.emplace_back(sk_X509_value(certificates, index));
  return chain;
}

}  // namespace platform
