#include "tests/tools/sign_bundle/signature_reader.hpp"

#include <openssl/cms.h>
#include <openssl/evp.h>

#include <memory>
#include <stdexcept>

#include "tests/support/files.hpp"
#include "tests/support/program.hpp"

namespace test {
namespace {

constexpr const char* kOpenSsl = "/usr/bin/openssl";

std::uint64_t number(std::string_view bytes, std::size_t offset, std::size_t size, bool bigEndian) {
  std::uint64_t value = 0;
  for (std::size_t index = 0; index < size; ++index) {
    const std::size_t place = offset + (bigEndian ? index : size - 1 - index);
    value = value << 8U | static_cast<unsigned char>(bytes.at(place));
  }
  return value;
}

std::string textAt(const std::string& bytes, std::size_t offset) {
  return bytes.substr(offset, bytes.find('\0', offset) - offset);
}

using Message = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

Message parseMessage(const std::string& message) {
  const auto* start = reinterpret_cast<const unsigned char*>(message.data());
  Message parsed(::d2i_CMS_ContentInfo(nullptr, &start, static_cast<long>(message.size())),
                 CMS_ContentInfo_free);
  if (!parsed)
    throw std::runtime_error("no CMS message");
  return parsed;
}

CMS_SignerInfo* onlySigner(const Message& message) {
  auto* signers = ::CMS_get0_SignerInfos(message.get());
  if (sk_CMS_SignerInfo_num(signers) != 1)
    throw std::runtime_error("not one signer");
  return sk_CMS_SignerInfo_value(signers, 0);
}

std::string contentOf(const ASN1_STRING* value) {
  return {reinterpret_cast<const char*>(::ASN1_STRING_get0_data(value)),
          static_cast<std::size_t>(::ASN1_STRING_length(value))};
}

std::vector<std::string> valuesOf(X509_ATTRIBUTE* attribute) {
  std::vector<std::string> values;
  values.reserve(static_cast<std::size_t>(::X509_ATTRIBUTE_count(attribute)));
  for (int index = 0; index < ::X509_ATTRIBUTE_count(attribute); ++index)
    values.push_back(contentOf(::X509_ATTRIBUTE_get0_type(attribute, index)->value.asn1_string));
  return values;
}

int attributeIndex(const CMS_SignerInfo* signer, const char* identifier,
                   int (*find)(const CMS_SignerInfo*, const ASN1_OBJECT*, int)) {
  const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(::OBJ_txt2obj(identifier, 1),
                                                                         ASN1_OBJECT_free);
  return find(signer, object.get(), -1);
}

ReadSlice readSlice(const std::string& bytes) {
  ReadSlice slice;
  slice.bytes = bytes;
  const bool big = number(bytes, 0, 4, true) >> 8U == 0xFEEDFA;
  const bool wide = number(bytes, 0, 4, big) == 0xFEEDFACF;
  slice.cpuType = static_cast<std::uint32_t>(number(bytes, 4, 4, big));
  std::size_t offset = wide ? 32 : 28;
  for (std::uint64_t left = number(bytes, 16, 4, big); left > 0; --left) {
    const std::uint64_t command = number(bytes, offset, 4, big);
    if (command == 0x1D) {
      slice.signatureOffset = static_cast<std::uint32_t>(number(bytes, offset + 8, 4, big));
      slice.signatureSize = static_cast<std::uint32_t>(number(bytes, offset + 12, 4, big));
    } else if (command == (wide ? 0x19U : 0x01U) && textAt(bytes, offset + 8) == "__LINKEDIT") {
      const std::size_t width = wide ? 8 : 4;
      const std::size_t memoryField = offset + 24 + width;
      slice.linkEditMemorySize = number(bytes, memoryField, width, big);
      slice.linkEditFileSize = number(bytes, memoryField + 2 * width, width, big);
      slice.linkEditEnd = number(bytes, memoryField + width, width, big) + slice.linkEditFileSize;
    }
    offset += number(bytes, offset + 4, 4, big);
  }
  return slice;
}

}  // namespace

std::uint32_t bigEndian32(std::string_view bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(number(bytes, offset, 4, true));
}

ReadCodeDirectory readCodeDirectory(const std::string& blob) {
  if (bigEndian32(blob, 0) != 0xFADE0C02 || bigEndian32(blob, 4) != blob.size())
    throw std::runtime_error("no code directory");
  ReadCodeDirectory directory;
  directory.blob = blob;
  directory.version = bigEndian32(blob, 8);
  directory.flags = bigEndian32(blob, 12);
  const std::size_t hashes = bigEndian32(blob, 16);
  directory.identifier = textAt(blob, bigEndian32(blob, 20));
  const std::uint64_t limit64 = number(blob, 56, 8, true);
  directory.codeLimit = limit64 == 0 ? bigEndian32(blob, 32) : limit64;
  const auto hashSize = static_cast<unsigned char>(blob.at(36));
  directory.hashType = static_cast<unsigned char>(blob.at(37));
  directory.pageSizeExponent = static_cast<unsigned char>(blob.at(39));
  if (const std::uint32_t team = bigEndian32(blob, 48); team != 0)
    directory.team = textAt(blob, team);
  directory.executableSegmentLimit = number(blob, 72, 8, true);
  directory.executableSegmentFlags = number(blob, 80, 8, true);
  if (directory.version >= 0x20500)
    directory.runtimeVersion = bigEndian32(blob, 88);
  for (std::size_t slot = 1; slot <= bigEndian32(blob, 24); ++slot)
    directory.specialSlots.push_back(blob.substr(hashes - slot * hashSize, hashSize));
  for (std::size_t slot = 0; slot < bigEndian32(blob, 28); ++slot)
    directory.codeSlots.push_back(blob.substr(hashes + slot * hashSize, hashSize));
  return directory;
}

std::map<std::uint32_t, std::string> readSuperBlob(const std::string& blob) {
  std::map<std::uint32_t, std::string> blobs;
  for (std::size_t index = 0; index < bigEndian32(blob, 8); ++index) {
    const std::size_t offset = bigEndian32(blob, 16 + 8 * index);
    blobs[bigEndian32(blob, 12 + 8 * index)] = blob.substr(offset, bigEndian32(blob, offset + 4));
  }
  return blobs;
}

std::vector<ReadSlice> readSlices(const std::string& file) {
  const std::uint32_t magic = bigEndian32(file, 0);
  if (magic != 0xCAFEBABE && magic != 0xCAFEBABF)
    return {readSlice(file)};
  std::vector<ReadSlice> slices;
  const bool wide = magic == 0xCAFEBABF;
  for (std::size_t index = 0; index < bigEndian32(file, 4); ++index) {
    const std::size_t entry = 8 + index * (wide ? 32 : 20);
    const std::size_t width = wide ? 8 : 4;
    const std::uint64_t offset = number(file, entry + 8, width, true);
    const std::uint64_t size = number(file, entry + 8 + width, width, true);
    if (offset % (std::uint64_t{1} << number(file, entry + 8 + 2 * width, 4, true)) != 0 ||
        offset + size > file.size())
      throw std::runtime_error("a slice lies at a wrong place");
    slices.push_back(readSlice(file.substr(offset, size)));
  }
  return slices;
}

std::string digestByType(std::string_view bytes, unsigned hashType) {
  const EVP_MD* algorithm = hashType == 1 ? ::EVP_sha1() : hashType == 2 ? ::EVP_sha256() : ::EVP_sha384();
  std::string digest(static_cast<std::size_t>(::EVP_MD_get_size(algorithm)), '\0');
  ::EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
               algorithm, nullptr);
  return digest;
}

std::vector<std::string> expectedCodeSlots(std::string_view code, const ReadCodeDirectory& directory) {
  const std::size_t page =
      directory.pageSizeExponent == 0 ? code.size() : std::size_t{1} << directory.pageSizeExponent;
  std::vector<std::string> slots;
  for (std::size_t offset = 0; offset < code.size(); offset += page)
    slots.push_back(digestByType(code.substr(offset, page), directory.hashType));
  return slots;
}

std::string payloadOf(const std::string& blob) {
  return blob.substr(8);
}

std::string verifyMessage(const std::string& message, const std::string& content) {
  const TemporaryDirectory directory;
  writeFile(directory / "message", message);
  writeFile(directory / "content", content);
  const Outcome outcome =
      runProgram(kOpenSsl, {"cms", "-verify", "-noverify", "-binary", "-inform", "DER", "-in",
                            directory / "message", "-content", directory / "content", "-out", "/dev/null"});
  return outcome.exitStatus == 0 ? std::string() : outcome.error;
}

std::string verifyTimeStamp(const std::string& message, const std::filesystem::path& chain) {
  const Message parsed = parseMessage(message);
  CMS_SignerInfo* signer = onlySigner(parsed);
  const int index = attributeIndex(signer, "1.2.840.113549.1.9.16.2.14", ::CMS_unsigned_get_attr_by_OBJ);
  if (index < 0)
    return "no time stamp";
  const TemporaryDirectory directory;
  writeFile(directory / "token", valuesOf(::CMS_unsigned_get_attr(signer, index)).at(0));
  writeFile(directory / "signature", contentOf(::CMS_SignerInfo_get0_signature(signer)));
  const Outcome outcome = runProgram(
      kOpenSsl, {"ts", "-verify", "-token_in", "-in", directory / "token", "-data", directory / "signature",
                 "-CAfile", chain / "root.pem", "-untrusted", chain / "time_stamp_chain.pem"});
  return outcome.exitStatus == 0 ? std::string() : outcome.error;
}

std::vector<std::string> signedAttribute(const std::string& message, const char* identifier) {
  const Message parsed = parseMessage(message);
  const CMS_SignerInfo* signer = onlySigner(parsed);
  const int index = attributeIndex(signer, identifier, ::CMS_signed_get_attr_by_OBJ);
  return index < 0 ? std::vector<std::string>() : valuesOf(::CMS_signed_get_attr(signer, index));
}

}  // namespace test
