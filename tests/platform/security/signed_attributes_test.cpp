#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>
#include <memory>

#include "platform/security/cms_signature.hpp"
#include "platform/security/signed_code.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::workshop;

/// An element of a message in BER, taken apart (ITU-T X.690).
struct Element {
  enum class Length { shortest, long_, indefinite };

  char tag = 0;
  std::string content = {};  ///< of a primitive element
  std::vector<Element> children = {};
  Length length = Length::shortest;

  bool isConstructed() const { return (tag & 0x20) != 0; }
  Element& operator[](std::size_t index) { return children.at(index); }
};

std::string encode(const Element& element) {
  std::string content = element.content;
  for (const Element& child : element.children)
    content += encode(child);
  std::string bytes(1, element.tag);
  if (element.length == Element::Length::indefinite)
    return bytes + '\x80' + content + std::string(2, '\0');
  if (content.size() > 0xFF || element.length == Element::Length::long_) {
    bytes += '\x82';
    bytes += static_cast<char>(content.size() >> 8U);
  } else if (content.size() >= 0x80) {
    bytes += '\x81';
  }
  return bytes + static_cast<char>(content.size()) + content;
}

std::vector<Element> decodeAll(std::string_view bytes) {
  std::vector<Element> elements;
  while (!bytes.empty()) {
    std::size_t length = static_cast<unsigned char>(bytes.at(1));
    std::size_t begin = 2;
    if (length >= 0x80) {
      const std::size_t end = begin + (length & 0x7FU);
      for (length = 0; begin < end; ++begin)
        length = length << 8U | static_cast<unsigned char>(bytes.at(begin));
    }
    Element element{.tag = bytes.front()};
    const std::string_view content = bytes.substr(begin, length);
    if (element.isConstructed())
      element.children = decodeAll(content);
    else
      element.content = content;
    elements.push_back(std::move(element));
    bytes.remove_prefix(begin + length);
  }
  return elements;
}

const std::string kContentType("\x2A\x86\x48\x86\xF7\x0D\x01\x09\x03");
const std::string kMessageDigest("\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04");
const std::string kHashList("\x2A\x86\x48\x86\xF7\x63\x64\x09\x01");
const std::string kDigestSet("\x2A\x86\x48\x86\xF7\x63\x64\x09\x02");

/// A message with one signer, and what its parts are (RFC 5652, sections 5.1 and 5.3).
struct Message {
  Element root;

  Element& data() { return root[1][0]; }
  Element& signers() { return data().children.back(); }
  Element& attributes() { return signers()[0][3]; }
  Element& attribute(const std::string& type) {
    for (Element& attribute : attributes().children) {
      if (attribute[0].content == type)
        return attribute;
    }
    throw std::out_of_range("no such attribute");
  }
  void remove(const std::string& type) {
    std::erase_if(attributes().children, [&](Element& attribute) { return attribute[0].content == type; });
  }
  void addUnsigned(const Element& attribute) {
    signers()[0].children.push_back({.tag = '\xA1', .children = {attribute}});
  }

  /// Signs the attributes as they are encoded.
  void sign() {
    const fs::path file = workshop().chain().directory() / "leaf_key.pem";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "r"), &std::fclose);
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(
        ::PEM_read_PrivateKey(stream.get(), nullptr, nullptr, nullptr), &::EVP_PKEY_free);
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(::EVP_MD_CTX_new(), &::EVP_MD_CTX_free);
    std::string bytes = encode(attributes());
    bytes.front() = '\x31';
    std::string value(static_cast<std::size_t>(::EVP_PKEY_get_size(key.get())), '\0');
    std::size_t size = value.size();
    ASSERT_EQ(::EVP_DigestSignInit(context.get(), nullptr, ::EVP_sha256(), nullptr, key.get()), 1);
    ASSERT_EQ(::EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(value.data()), &size,
                               reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()),
              1);
    signers()[0][5].content = value.substr(0, size);
  }
};

enum class Signed { before, after };

struct Variant {
  const char* name;
  void (*change)(Message&);
  Signed when;          ///< whether the signer signed what the change made
  const char* refusal;  ///< empty for a message that is accepted
};

constexpr const char* kOtherSigner = "does not match its signer's certificate";
constexpr const char* kOtherCode = "is not what was signed";
constexpr const char* kOtherDirectories = "not those that were signed";
constexpr const char* kTwice = "a signed attribute twice";

const std::vector<Variant> kVariants{
    {"nothing changed", [](Message&) {}, Signed::after, ""},
    {"attributes in another order", [](Message& m) { std::swap(m.attributes()[0], m.attributes()[1]); },
     Signed::before, kOtherSigner},
    {"attributes in another order, signed so",
     [](Message& m) { std::swap(m.attributes()[0], m.attributes()[1]); }, Signed::after, ""},
    {"values in another order",
     [](Message& m) { std::swap(m.attribute(kDigestSet)[1][0], m.attribute(kDigestSet)[1][1]); },
     Signed::before, kOtherSigner},
    {"an attribute left out", [](Message& m) { m.remove(kDigestSet); }, Signed::before, kOtherSigner},
    {"the message digest twice",
     [](Message& m) { m.attributes().children.push_back(m.attribute(kMessageDigest)); }, Signed::after,
     kTwice},
    {"the hash list twice", [](Message& m) { m.attributes().children.push_back(m.attribute(kHashList)); },
     Signed::after, kTwice},
    {"the message digest with two values",
     [](Message& m) {
       Element& values = m.attribute(kMessageDigest)[1];
       values.children.push_back(values[0]);
       values.children.back().content.front() ^= 1;
     },
     Signed::after, kOtherCode},
    {"the content type with two values",
     [](Message& m) { m.attribute(kContentType)[1].children.push_back(m.attribute(kContentType)[1][0]); },
     Signed::after, "not over code"},
    {"the hash list with two values",
     [](Message& m) { m.attribute(kHashList)[1].children.push_back(m.attribute(kHashList)[1][0]); },
     Signed::after, kOtherDirectories},
    {"the message digest among the unsigned attributes",
     [](Message& m) {
       m.addUnsigned(m.attribute(kMessageDigest));
       m.remove(kMessageDigest);
     },
     Signed::after, kOtherCode},
    {"the directories' lists among the unsigned attributes",
     [](Message& m) {
       m.addUnsigned(m.attribute(kHashList));
       m.remove(kHashList);
       m.remove(kDigestSet);
     },
     Signed::after, kOtherDirectories},
    {"another hash list among the unsigned attributes changes nothing",
     [](Message& m) {
       Element other = m.attribute(kHashList);
       other[1][0].content.clear();
       m.addUnsigned(other);
     },
     Signed::before, ""},
    {"attributes of indefinite length",
     [](Message& m) { m.attributes().length = Element::Length::indefinite; }, Signed::before, ""},
    {"attributes with a long form of length",
     [](Message& m) { m.attributes().length = Element::Length::long_; }, Signed::before, ""},
    {"the whole message of indefinite length",
     [](Message& m) {
       for (Element* element : {&m.root, &m.root[1], &m.data()})
         element->length = Element::Length::indefinite;
     },
     Signed::before, ""},
    {"a long form of length within the attributes",
     [](Message& m) { m.attribute(kMessageDigest).length = Element::Length::long_; }, Signed::before,
     kOtherSigner},
    {"a long form of length within the attributes, signed so",
     [](Message& m) { m.attribute(kMessageDigest).length = Element::Length::long_; }, Signed::after, ""},
    {"an indefinite length within the attributes, signed so",
     [](Message& m) { m.attribute(kMessageDigest).length = Element::Length::indefinite; }, Signed::after, ""},
    {"a signature of another kind of key",
     [](Message& m) { m.signers()[0][4][0].content = "\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"; },
     Signed::before, "does not match its signer's key"},
    {"the signer twice", [](Message& m) { m.signers().children.push_back(m.signers()[0]); }, Signed::before,
     "not by one signer"},
    {"a second list of signers", [](Message& m) { m.data().children.push_back(m.signers()); }, Signed::before,
     "is not signed data"},
    {"attributes twice",
     [](Message& m) { m.signers()[0].children.insert(m.signers()[0].children.begin() + 3, m.attributes()); },
     Signed::before, "is not signed data"},
    {"a second SignedData", [](Message& m) { m.root[1].children.push_back(m.data()); }, Signed::before,
     "is not signed data"},
};

// The attributes that are read must be the bytes that the signature covers, however the message is encoded.
TEST(SignedAttributes, areReadFromTheBytesThatWereSigned) {
  const fs::path application =
      workshop().signedApplication({.executable = test::SampleExecutable::machO}, {"--hash", "sha1+sha256"});
  const auto location = [](const fs::path& path) { return platform::URL::fileURLWithPath(path.native()); };
  const auto folder = platform::Directory::open(location(application / "Contents/MacOS"),
                                                platform::Directory::Links::followed);
  const platform::SignedCode code =
      platform::readSignedCode(platform::CodeFile(folder.entry(application.stem().native())), std::nullopt);
  const platform::SignedSlice& slice = code.slices.front();
  ASSERT_EQ(slice.directories.size(), 2U);
  const auto anchors = platform::TrustAnchors::inDirectory(location(workshop().anchors()));
  const std::string_view original = slice.components.at(platform::slot::kSignature);
  const auto refusalOf = [&](const Message& message,
                             const std::vector<platform::CodeDirectory>& directories) {
    try {
      platform::verifyCMSSignature(encode(message.root), directories, anchors);
      return std::string();
    } catch (const platform::FormatError& error) {
      return error.reason();
    }
  };
  for (const Variant& variant : kVariants) {
    Message message{decodeAll(original).front()};
    variant.change(message);
    if (variant.when == Signed::after)
      message.sign();
    const std::string refusal = refusalOf(message, slice.directories);
    EXPECT_THAT(refusal, testing::HasSubstr(variant.refusal)) << variant.name;
    EXPECT_EQ(refusal.empty(), *variant.refusal == '\0') << variant.name << ": " << refusal;
  }
  // Each list alone binds the second directory, which the message digest does not cover.
  std::string otherCode(slice.directories.back().blob());
  otherCode.back() = static_cast<char>(otherCode.back() ^ 1);
  const std::vector<platform::CodeDirectory> others{slice.directories.front(),
                                                    platform::CodeDirectory::read(otherCode)};
  for (const std::string& list : {kHashList, kDigestSet}) {
    Message message{decodeAll(original).front()};
    message.remove(list);
    message.sign();
    EXPECT_EQ(refusalOf(message, slice.directories), "");
    EXPECT_THAT(refusalOf(message, others), testing::HasSubstr(kOtherDirectories));
  }
}

}  // namespace
