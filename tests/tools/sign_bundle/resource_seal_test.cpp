#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "platform/foundation/property_list.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sample_application.hpp"
#include "tests/tools/sign_bundle/signature_reader.hpp"

namespace fs = std::filesystem;

namespace {

using platform::PropertyList;
using test::SampleChain;

PropertyList readSeal(const fs::path& content) {
  return platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(test::readFile(content / "_CodeSignature/CodeResources")));
}

std::string bytesOf(const PropertyList* value) {
  return value == nullptr || value->data() == nullptr ? "none" : std::string(value->data()->bytes());
}

/// What an entry says, in a word.
std::string kindOf(const PropertyList& entry) {
  if (entry.data() != nullptr)
    return "sha1";
  std::string kind;
  for (const auto& [key, value] : *entry.dictionary())
    kind += (kind.empty() ? "" : " ") +
            (value.string() != nullptr && key == "symlink" ? "-> " + *value.string() : key);
  return kind;
}

std::map<std::string, std::string> kindsOf(const PropertyList& seal, std::string_view generation) {
  std::map<std::string, std::string> kinds;
  for (const auto& [path, entry] : *seal.valueForKey(generation)->dictionary())
    kinds.emplace(path, kindOf(entry));
  return kinds;
}

/// Compares every digest of a seal with the file it stands for, read through the older and the present keys.
void expectDigestsOfFiles(const PropertyList& seal, const fs::path& content) {
  for (const char* generation : {"files", "files2"}) {
    for (const auto& [path, entry] : *seal.valueForKey(generation)->dictionary()) {
      const PropertyList* sha1 = entry.data() != nullptr ? &entry : entry.valueForKey("hash");
      if (sha1 != nullptr) {
        EXPECT_EQ(bytesOf(sha1), test::digestByType(test::readFile(content / path), 1)) << path;
      }
      if (const PropertyList* sha256 = entry.valueForKey("hash2")) {
        EXPECT_EQ(bytesOf(sha256), test::digestByType(test::readFile(content / path), 2)) << path;
      }
    }
  }
}

const std::map<std::string, std::string> kSealed = {
    {"Frameworks/Sample.framework", "cdhash requirement"},
    {"Frameworks/Sample.framework.dSYM/Contents/Info.plist", "hash2"},
    {"Frameworks/Sample.framework.dSYM/Contents/Resources/DWARF/Sample", "hash2"},
    {"Frameworks/libsample.1.dylib", "cdhash requirement"},
    {"Frameworks/libsample.dylib", "-> libsample.1.dylib"},
    {"Library/LoginItems/Agent.app", "cdhash requirement"},
    {"Library/SystemExtensions/com.example.sample.driver.dext/Contents/Info.plist", "hash2"},
    {"Library/SystemExtensions/com.example.sample.driver.dext/Contents/MacOS/com.example.sample.driver",
     "hash2"},
    {"Library/SystemExtensions/com.example.sample.driver.dext/Contents/Resources/en.lproj/"
     "Localizable.strings",
     "hash2"},
    {"MacOS/sample-helper", "cdhash requirement"},
    {"PlugIns/Sample.bundle", "cdhash requirement"},
    {"PlugIns/Share.appex", "cdhash requirement"},
    {"Resources/Base.lproj/Main.nib", "hash2"},
    {"Resources/Lies mich, bitte \xE2\x80\x93 Gr\xC3\xBC\xC3\x9F"
     "e.txt",
     "hash2"},
    {"Resources/deep/deeper/deepest/file.txt", "hash2"},
    {"Resources/empty", "hash2"},
    {"Resources/en.lproj/Localizable.strings", "hash2 optional"},
    {"Resources/icon.icns", "hash2"},
    {"Resources/link to directory", "-> deep"},
    {"Resources/link to file.txt", "-> deep/deeper/deepest/file.txt"},
    {"Resources/pt-BR.lproj/Help/index.html", "hash2 optional"},
    {"Resources/text.txt", "hash2"},
    {"Resources/tool.sh", "hash2"},
    {"XPCServices/com.example.sample.service.xpc", "cdhash requirement"},
    {"embedded.provisionprofile", "hash2"},
    {"version.plist", "hash2"},
};

TEST(ResourceSeal, ListsEverythingByTheRules) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makeSampleApplication(directory.path());
  chain.sign(application);

  const PropertyList seal = readSeal(application / "Contents");
  EXPECT_EQ(kindsOf(seal, "files2"), kSealed);
  expectDigestsOfFiles(seal, application / "Contents");
  EXPECT_EQ(seal.valueForKey("rules2")->dictionary()->size(), 13U);

  const fs::path framework = application / "Contents/Frameworks/Sample.framework/Versions/A";
  const PropertyList inner = readSeal(framework);
  const std::map<std::string, std::string> sealedInFramework = {
      {"Frameworks/Inner.framework", "cdhash requirement"},
      {"Headers/Sample.h", "hash2"},
      {"Resources/Info.plist", "hash2"},
      {"Resources/de.lproj/Localizable.strings", "hash2 optional"},
      {"sample-agent", "cdhash requirement"}};
  EXPECT_EQ(kindsOf(inner, "files2"), sealedInFramework);
  expectDigestsOfFiles(inner, framework);
}

TEST(ResourceSeal, KeepsTheOlderGenerationBesideTheNewOne) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makeSampleApplication(directory.path());
  chain.sign(application);

  const PropertyList seal = readSeal(application / "Contents");
  const auto older = kindsOf(seal, "files");
  EXPECT_EQ(older.at("Resources/icon.icns"), "sha1");
  EXPECT_EQ(older.at("Resources/en.lproj/Localizable.strings"), "hash optional");
  EXPECT_EQ(older.at("version.plist"), "sha1");
  EXPECT_FALSE(older.contains("Resources/en.lproj/locversion.plist"));
  EXPECT_FALSE(older.contains("embedded.provisionprofile"));
  EXPECT_EQ(seal.valueForKey("rules")->dictionary()->size(), 5U);
}

TEST(ResourceSeal, StatesDigestsInTheFormAskedFor) {
  const std::map<std::string, std::pair<std::string, std::string>> forms = {
      {"sha256", {"hash2", "hash2 optional"}},
      {"sha1+sha256", {"hash hash2", "hash hash2 optional"}},
      {"sha1", {"sha1", "hash optional"}}};
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makePlainApplication(directory.path());
  test::writeFile(application / "Contents/Resources/en.lproj/text.strings", "text");
  for (const auto& [option, expected] : forms) {
    SCOPED_TRACE(option);
    chain.sign(application, {"--sealed-hash", option});
    const PropertyList seal = readSeal(application / "Contents");
    const std::map<std::string, std::string> sealed = {{"Resources/text.txt", expected.first},
                                                       {"Resources/en.lproj/text.strings", expected.second}};
    EXPECT_EQ(kindsOf(seal, "files2"), sealed);
    expectDigestsOfFiles(seal, application / "Contents");
  }
}

}  // namespace
