// What is sealed, and how. That a signature is valid is for the check of signatures to say, which knows
// nothing of how they are made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using platform::PropertyList;
using testing::IsSupersetOf;
using testing::Pair;

PropertyList sealOf(const fs::path& application) {
  return platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(test::readFile(application / "Contents/_CodeSignature/CodeResources")));
}

/// The sealed paths with what their entries say, in a word. The digests themselves are for the check of
/// signatures.
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

TEST(SigningTest, SealsEverythingByTheRules) {
  const PropertyList seal = sealOf(test::workshop().signedApplication());
  const auto present = kindsOf(seal, "files2");
  EXPECT_EQ(present.size(), 29U);
  EXPECT_THAT(
      present,
      IsSupersetOf(
          {Pair("Frameworks/Sample.framework.dSYM/Contents/Info.plist", "hash2"),
           Pair("Frameworks/libsample.dylib", "-> libsample.1.dylib"),
           Pair("Library/SystemExtensions/com.example.sample.driver.dext/Contents/Info.plist", "hash2"),
           Pair("MacOS/sample-helper", "cdhash requirement"), Pair("Resources/Base.lproj/Main.nib", "hash2"),
           Pair("Resources/en.lproj/Localizable.strings", "hash2 optional")}));
  for (const char* omitted : {"Info.plist", "PkgInfo", "CodeResources", "Resources/.DS_Store",
                              "Resources/en.lproj/locversion.plist", "MacOS/Sample Application"})
    EXPECT_FALSE(present.contains(omitted)) << omitted;
  const auto older = kindsOf(seal, "files");
  EXPECT_EQ(older.at("version.plist"), "sha1");
  EXPECT_EQ(older.at("Resources/en.lproj/Localizable.strings"), "hash optional");
  EXPECT_FALSE(older.contains("embedded.provisionprofile"));
}

}  // namespace
