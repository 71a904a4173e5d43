#include "tools/sign_bundle/time_stamper.hpp"

#include "platform/crypto/digest.hpp"

namespace sign_bundle {
namespace {

/// Unregistered.
constexpr const char* kPolicy = "1.3.6.1.4.1.55555.2.1";
constexpr const char* kStep = "Making a time stamp";

using Request = openssl::Handle<TS_REQ, &::TS_REQ_free>;
using MessageImprint = openssl::Handle<TS_MSG_IMPRINT, &::TS_MSG_IMPRINT_free>;
using Responder = openssl::Handle<TS_RESP_CTX, &::TS_RESP_CTX_free>;
using Response = openssl::Handle<TS_RESP, &::TS_RESP_free>;

Request requestFor(std::string_view bytes) {
  std::string digest = platform::digestOf(platform::DigestAlgorithm::sha256, bytes);
  const auto algorithm = checked<openssl::AlgorithmIdentifier>(::X509_ALGOR_new(), kStep);
  ::X509_ALGOR_set_md(algorithm.get(), ::EVP_sha256());
  const auto imprint = checked<MessageImprint>(::TS_MSG_IMPRINT_new(), kStep);
  succeeded(::TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()), kStep);
  succeeded(::TS_MSG_IMPRINT_set_msg(imprint.get(), reinterpret_cast<unsigned char*>(digest.data()),
                                     static_cast<int>(digest.size())),
            kStep);
  auto request = checked<Request>(::TS_REQ_new(), kStep);
  succeeded(::TS_REQ_set_version(request.get(), 1), kStep);
  succeeded(::TS_REQ_set_msg_imprint(request.get(), imprint.get()), kStep);
  succeeded(::TS_REQ_set_cert_req(request.get(), 1), kStep);
  return request;
}

ASN1_INTEGER* serialNumber(TS_RESP_CTX*, void*) {
  ASN1_INTEGER* number = ::ASN1_INTEGER_new();
  if (number != nullptr)
    ::ASN1_INTEGER_set(number, 1);
  return number;
}

int statedTime(TS_RESP_CTX*, void* moment, long* seconds, long* microseconds) {
  *seconds = static_cast<long>(*static_cast<const std::time_t*>(moment));
  *microseconds = 0;
  return 1;
}

}  // namespace

std::string makeTimeStampToken(std::string_view bytes, const Signer& authority, std::time_t moment) {
  const auto responder = checked<Responder>(::TS_RESP_CTX_new(), kStep);
  succeeded(::TS_RESP_CTX_set_signer_cert(responder.get(), authority.certificate.get()), kStep);
  succeeded(::TS_RESP_CTX_set_signer_key(responder.get(), authority.key.get()), kStep);
  succeeded(::TS_RESP_CTX_set_certs(responder.get(), authority.chain.get()), kStep);
  succeeded(::TS_RESP_CTX_set_signer_digest(responder.get(), ::EVP_sha256()), kStep);
  succeeded(::TS_RESP_CTX_set_def_policy(responder.get(), objectIdentifier(kPolicy).get()), kStep);
  succeeded(::TS_RESP_CTX_add_md(responder.get(), ::EVP_sha256()), kStep);
  ::TS_RESP_CTX_set_serial_cb(responder.get(), serialNumber, nullptr);
  ::TS_RESP_CTX_set_time_cb(responder.get(), statedTime, &moment);

  const Request request = requestFor(bytes);
  const std::string encodedRequest = encoded(*request, ::i2d_TS_REQ, kStep);
  const openssl::Bio stream = openssl::bytesStream(encodedRequest);
  const auto response = checked<Response>(::TS_RESP_create_response(responder.get(), stream.get()), kStep);
  const PKCS7* token = ::TS_RESP_get_token(response.get());
  if (token == nullptr)
    throw CryptographyError(kStep);
  return encoded(*token, ::i2d_PKCS7, kStep);
}

}  // namespace sign_bundle
