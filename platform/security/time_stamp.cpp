#include "platform/security/time_stamp.hpp"

#include "platform/security/certificate_chain.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

[[noreturn]] void refuse() {
  throw FormatError("its time stamp is not valid");
}

/// The context owns, and frees, what it gets.
void fill(TS_VERIFY_CTX* context, openssl::Bio data, openssl::Store store) {
#if OPENSSL_VERSION_PREREQ(3, 4)
  ::TS_VERIFY_CTX_set0_data(context, data.release());
  ::TS_VERIFY_CTX_set0_store(context, store.release());
#else
  ::TS_VERIFY_CTX_set_data(context, data.release());
  ::TS_VERIFY_CTX_set_store(context, store.release());
#endif
}

void verifyToken(const ASN1_TYPE* value, std::string_view stamped, const TrustAnchors& anchors) {
  if (value == nullptr || value->type != V_ASN1_SEQUENCE)
    refuse();
  const std::string_view encoded = openssl::bytesOf(value->value.sequence);
  const auto* position = reinterpret_cast<const unsigned char*>(encoded.data());
  const openssl::Pkcs7 token(::d2i_PKCS7(nullptr, &position, static_cast<long>(encoded.size())));
  const openssl::TimeStampContext context(::TS_VERIFY_CTX_new());
  if (!token || !context)
    refuse();
  ::TS_VERIFY_CTX_set_flags(context.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_DATA);
  fill(context.get(), openssl::bytesStream(stamped), anchorStore(anchors));
  if (::TS_RESP_verify_token(context.get(), token.get()) != 1)
    refuse();
}

}  // namespace

void verifyTimeStamps(CMS_SignerInfo* signer, const TrustAnchors& anchors) {
  const std::string_view signature = openssl::bytesOf(::CMS_SignerInfo_get0_signature(signer));
  const ASN1_OBJECT* kind = ::OBJ_nid2obj(NID_id_smime_aa_timeStampToken);
  for (int place = ::CMS_unsigned_get_attr_by_OBJ(signer, kind, -1); place >= 0;
       place = ::CMS_unsigned_get_attr_by_OBJ(signer, kind, place)) {
    X509_ATTRIBUTE* attribute = ::CMS_unsigned_get_attr(signer, place);
    const int count = ::X509_ATTRIBUTE_count(attribute);
    if (count < 1)
      refuse();
    for (int index = 0; index < count; ++index)
      verifyToken(::X509_ATTRIBUTE_get0_type(attribute, index), signature, anchors);
  }
}

}  // namespace platform
