#include "tools/sign_bundle/certificate_files.hpp"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "platform/files/data.hpp"
#include "platform/files/file_descriptor.hpp"

namespace sign_bundle {
namespace {

openssl::Bio memoryStream() {
  return checked<openssl::Bio>(::BIO_new(::BIO_s_mem()), "Opening a stream");
}

void create(const platform::URL& file, BIO* content, unsigned mode) {
  auto descriptor = platform::FileDescriptor::open(file, O_WRONLY | O_CREAT | O_EXCL, mode);
  const char* bytes = nullptr;
  const auto length = BIO_get_mem_data(content, &bytes);
  descriptor.writeAll({bytes, static_cast<std::size_t>(length)}, file.path());
  descriptor.close(file.path());
}

}  // namespace

void writeCertificates(const platform::URL& file, const std::vector<X509*>& certificates) {
  const openssl::Bio text = memoryStream();
  for (X509* certificate : certificates)
    succeeded(::PEM_write_bio_X509(text.get(), certificate), "Writing a certificate");
  create(file, text.get(), 0644);
}

void writeKey(const platform::URL& file, const EVP_PKEY& key) {
  const openssl::Bio text = memoryStream();
  succeeded(::PEM_write_bio_PKCS8PrivateKey(text.get(), &key, nullptr, nullptr, 0, nullptr, nullptr),
            "Writing a key");
  create(file, text.get(), 0600);
}

openssl::Certificates readCertificates(const platform::URL& file) {
  const platform::Data text = platform::Data::contentsOf(file);
  const openssl::Bio stream = openssl::bytesStream(text.bytes());
  auto certificates = checked<openssl::Certificates>(sk_X509_new_null(), "Reading certificates");
  while (X509* certificate = ::PEM_read_bio_X509(stream.get(), nullptr, nullptr, nullptr))
    succeeded(sk_X509_push(certificates.get(), certificate), "Reading certificates");
  if (ERR_GET_REASON(::ERR_peek_last_error()) != PEM_R_NO_START_LINE)
    throw CryptographyError("Reading " + platform::quoted(file.path()));
  ::ERR_clear_error();
  return certificates;
}

openssl::Key readKey(const platform::URL& file) {
  const platform::Data text = platform::Data::contentsOf(file);
  const openssl::Bio stream = openssl::bytesStream(text.bytes());
  return checked<openssl::Key>(::PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, nullptr),
                               "Reading " + platform::quoted(file.path()));
}

}  // namespace sign_bundle
