#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "platform/foundation/property_list.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sample_application.hpp"

namespace fs = std::filesystem;

namespace {

using platform::PropertyList;
using test::SampleChain;
using testing::IsSupersetOf;
using testing::Pair;

PropertyList readSeal(const fs::path& content) {
  return platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(test::readFile(content / "_CodeSignature/CodeResources")));
}

/// The sealed paths with what their entries say, in a word. The digests
/// themselves are for the check of signatures.
std::map<std::string, std::string> kindsOf(const PropertyList& seal, std::string_view generation) {
  std::map<std::string, std::string> kinds;
  for (const auto& [path, entry] : *seal.valueForKey(generation)->dictionary()) {
    std::string& kind = kinds[path];
    if (entry.data() != nullptr) {
      kind = "sha1";
      continue;
    }
    for (const auto& [key, value] : *entry.dictionary())
      kind += (kind.empty() ? "" : " ") + (key == "symlink" ? "-> " + *value.string() : key);
  }
  return kinds;
}

TEST(ResourceSeal, ListsEverythingByTheRules) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makeSampleApplication(directory.path());
  chain.sign(application);

  const PropertyList seal = readSeal(application / "Contents");
  const auto present = kindsOf(seal, "files2");
  EXPECT_EQ(present.size(), 26U);
  EXPECT_THAT(
      present,
      IsSupersetOf({Pair("Frameworks/Sample.framework", "cdhash requirement"),
                    Pair("Frameworks/Sample.framework.dSYM/Contents/Info.plist", "hash2"),
                    Pair("Frameworks/libsample.1.dylib", "cdhash requirement"),
                    Pair("Frameworks/libsample.dylib", "-> libsample.1.dylib"),
                    Pair("Library/LoginItems/Agent.app", "cdhash requirement"),
                    Pair("Library/SystemExtensions/com.example.sample.driver.dext/"
                         "Contents/Info.plist",
                         "hash2"),
                    Pair("MacOS/sample-helper", "cdhash requirement"),
                    Pair("Resources/Base.lproj/Main.nib", "hash2"),
                    Pair("Resources/en.lproj/Localizable.strings", "hash2 optional"),
                    Pair("Resources/link to directory", "-> deep"), Pair("Resources/tool.sh", "hash2"),
                    Pair("embedded.provisionprofile", "hash2"), Pair("version.plist", "hash2")}));
  for (const char* omitted : {"Info.plist", "PkgInfo", "CodeResources", "Resources/.DS_Store",
                              "Resources/en.lproj/locversion.plist", "MacOS/Sample Application"})
    EXPECT_FALSE(present.contains(omitted)) << omitted;

  const auto older = kindsOf(seal, "files");
  EXPECT_THAT(older, IsSupersetOf({Pair("Resources/icon.icns", "sha1"),
                                   Pair("Resources/en.lproj/Localizable.strings", "hash optional"),
                                   Pair("version.plist", "sha1")}));
  for (const char* omitted : {"Resources/en.lproj/locversion.plist", "embedded.provisionprofile"})
    EXPECT_FALSE(older.contains(omitted)) << omitted;

  const std::map<std::string, std::string> sealedInFramework = {
      {"Frameworks/Inner.framework", "cdhash requirement"},
      {"Headers/Sample.h", "hash2"},
      {"Resources/Info.plist", "hash2"},
      {"Resources/de.lproj/Localizable.strings", "hash2 optional"},
      {"sample-agent", "cdhash requirement"}};
  EXPECT_EQ(kindsOf(readSeal(application / "Contents/Frameworks/Sample.framework/Versions/A"), "files2"),
            sealedInFramework);
}

TEST(ResourceSeal, StatesDigestsInTheFormAskedFor) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makePlainApplication(directory.path());
  test::writeFile(application / "Contents/Resources/en.lproj/text.strings", "text");
  for (const auto& [option, required, optional] : {std::tuple("sha256", "hash2", "hash2 optional"),
                                                   {"sha1+sha256", "hash hash2", "hash hash2 optional"},
                                                   {"sha1", "sha1", "hash optional"}}) {
    chain.sign(application, {"--sealed-hash", option});
    EXPECT_THAT(kindsOf(readSeal(application / "Contents"), "files2"),
                testing::ElementsAre(Pair("Resources/en.lproj/text.strings", optional),
                                     Pair("Resources/text.txt", required)))
        << option;
  }
}

}  // namespace
