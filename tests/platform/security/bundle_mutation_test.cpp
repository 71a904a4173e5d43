#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::copyTree;
using test::SigningWorkshop;
using test::Verdict;

/// Replaces an item, which was moved to `original`.
using Apply = std::function<void(const fs::path& original, const fs::path& item)>;

struct Mutation {
  const char* name;
  Apply apply;
};

Apply linkTo(const char* target) {
  return [target](const fs::path&, const fs::path& item) { fs::create_symlink(target, item); };
}

/// Replaces the content with a changed copy.
Apply content(std::string (*change)(std::string content)) {
  return [change](const fs::path& original, const fs::path& file) {
    test::writeFile(file, change(test::readFile(original)));
  };
}

std::string withByteFlipped(std::string content, std::size_t index) {
  if (content.empty())
    return "x";
  content[index] = static_cast<char>(content[index] ^ 0x20);
  return content;
}

Apply addition(const char* file) {
  return [file](const fs::path& original, const fs::path& directory) {
    copyTree(original, directory);
    test::writeFile(directory / file, "added");
  };
}

const Mutation kRemoval{"removal", [](const fs::path&, const fs::path&) {}};
const Mutation kAddedFile{"an added file", addition("added")};
const Mutation kAddedLink{"an added link", [](const fs::path& original, const fs::path& directory) {
                            copyTree(original, directory);
                            fs::create_symlink(".", directory / "added");
                          }};

const std::vector<Mutation> kOfFiles{
    kRemoval,
    {"change in the middle", content([](std::string old) { return withByteFlipped(old, old.size() / 2); })},
    {"change of the first byte", content([](std::string old) { return withByteFlipped(old, 0); })},
    {"addition at the end", content([](std::string old) { return old + '\0'; })},
    {"cut to nothing", content([](std::string old) { return std::string(old.empty() ? "x" : ""); })},
    {"a directory in its place",
     [](const fs::path&, const fs::path& file) { test::writeFile(file / "file", ""); }},
    {"a link in its place", linkTo(".")},
    {"a pipe in its place",
     [](const fs::path&, const fs::path& file) { EXPECT_EQ(::mkfifo(file.c_str(), 0600), 0); }},
};

const std::vector<Mutation> kOfLinks{
    kRemoval,
    {"another target", linkTo("Resources")},
    {"itself as its target", linkTo("Versions/Current/Versions")},
    {"a target outside", linkTo("../../../../../../../../../../../../etc")},
    {"an absolute target", linkTo("/etc/hostname")},
    {"a copy of its target in its place",
     [](const fs::path& original, const fs::path& link) {
       copyTree(fs::canonical(link.parent_path() / fs::read_symlink(original)), link);
     }},
};

const std::vector<Mutation> kOfDirectories{
    kRemoval,
    kAddedFile,
    kAddedLink,
    {"an added directory with a file", addition("added.framework/Versions/A/added")},
    {"a link in its place",
     [](const fs::path&, const fs::path& directory) {
       fs::create_directory_symlink("../../" + directory.parent_path().parent_path().filename().native(),
                                    directory);
     }},
};

const std::vector<Mutation> kOfTheApplication{kAddedFile, kAddedLink};

bool isLocalisation(const std::string& path) {
  return path.find("Resources/") != std::string::npos && path.find(".lproj") != std::string::npos &&
         path.find("Base.lproj") == std::string::npos;
}

bool holdsOnlyLocalisations(const fs::path& directory) {
  const auto entries = fs::recursive_directory_iterator(directory);
  return std::all_of(begin(entries), end(entries), [](const fs::directory_entry& entry) {
    return entry.is_directory() || isLocalisation(entry.path().native());
  });
}

/// What a signature does not cover: files that the seal's rules omit, the notarization ticket, the removal of
/// localisations, and the removal of a framework's outer links.
bool isExplained(const fs::path& item, const std::string& path, const std::string& mutation) {
  const bool omitted = path == "Contents/PkgInfo" || path == "Contents/CodeResources" ||
                       path.ends_with(".DS_Store") || path.ends_with("locversion.plist");
  const bool outerLink = fs::path(path).parent_path().extension() == ".framework" && fs::is_symlink(item);
  const bool localisation = isLocalisation(path) || (fs::is_directory(item) && holdsOnlyLocalisations(item));
  return omitted || ((localisation || outerLink) && mutation == kRemoval.name);
}

class MutatedApplication : public testing::TestWithParam<test::SampleExecutable> {
 protected:
  const std::vector<Mutation>& mutationsOf(const fs::path& item) const {
    if (item == application)
      return kOfTheApplication;
    if (fs::is_symlink(item))
      return kOfLinks;
    return fs::is_directory(item) ? kOfDirectories : kOfFiles;
  }

  Verdict judge() const { return workshop.judge(application, test::sampleRequirement()); }

  SigningWorkshop workshop;
  fs::path application = workshop.signedApplication({.executable = GetParam()});
};

TEST_P(MutatedApplication, isRefused) {
  // Beside the whole application: beside the item it would be an addition.
  const fs::path original = application.parent_path() / "original";
  std::vector<fs::path> items{application};
  for (const auto& entry : fs::recursive_directory_iterator(application))
    items.push_back(entry.path());
  int tried = 0;
  for (const fs::path& item : items) {
    const std::string path = item.lexically_relative(application).native();
    for (const Mutation& mutation : mutationsOf(item)) {
      fs::rename(item, original);
      mutation.apply(original, item);
      const Verdict verdict = judge();
      fs::remove_all(item);
      fs::rename(original, item);
      ++tried;
      EXPECT_TRUE(!verdict.accepted() || isExplained(item, path, mutation.name)) << path << mutation.name;
      EXPECT_NE(verdict.status, platform::errSecCSReqFailed) << path << ": " << verdict.sentence;
    }
  }
  EXPECT_TRUE(judge().accepted()) << "not restored: " << judge().sentence;
  EXPECT_GT(tried, 500);
}

INSTANTIATE_TEST_SUITE_P(Executables, MutatedApplication,
                         testing::Values(test::SampleExecutable::script, test::SampleExecutable::machO));

}  // namespace
