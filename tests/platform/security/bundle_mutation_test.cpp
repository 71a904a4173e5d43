#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <iostream>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::SigningWorkshop;
using test::Verdict;

/// Changes an item and gives back how to undo that.
using Undo = std::function<void()>;
using Mutation = std::function<Undo(const fs::path& item)>;

struct NamedMutation {
  const char* name;
  Mutation apply;
};

/// Keeps the item beside the whole application, not beside itself, where it would be an addition.
Undo setAside(const fs::path& item) {
  fs::path application = item;
  while (application.extension() != ".app" || application.filename() == "Agent.app")
    application = application.parent_path();
  const fs::path kept = application.parent_path() / "kept";
  fs::rename(item, kept);
  return [=] {
    fs::remove_all(item);
    fs::rename(kept, item);
  };
}

Undo rewrite(const fs::path& file, const std::string& content) {
  const std::string old = test::readFile(file);
  test::writeFile(file, content);
  return [=] { test::writeFile(file, old); };
}

std::string withByteFlipped(std::string content, std::size_t index) {
  content[index] = static_cast<char>(content[index] ^ 0x20);
  return content;
}

const std::vector<NamedMutation>& fileMutations() {
  static const std::vector<NamedMutation> kMutations{
      {"change in the middle",
       [](const fs::path& file) {
         const std::string content = test::readFile(file);
         return rewrite(file, content.empty() ? "x" : withByteFlipped(content, content.size() / 2));
       }},
      {"change of the first byte",
       [](const fs::path& file) {
         const std::string content = test::readFile(file);
         return rewrite(file, content.empty() ? "x" : withByteFlipped(content, 0));
       }},
      {"addition at the end",
       [](const fs::path& file) { return rewrite(file, test::readFile(file) + '\0'); }},
      {"cut to nothing",
       [](const fs::path& file) {
         const std::string content = test::readFile(file);
         return rewrite(file, content.empty() ? "x" : "");
       }},
      {"removal", [](const fs::path& file) { return setAside(file); }},
      {"a directory in its place",
       [](const fs::path& file) {
         Undo undo = setAside(file);
         test::writeFile(file / "file", "");
         return undo;
       }},
      {"a link in its place",
       [](const fs::path& file) {
         Undo undo = setAside(file);
         fs::create_symlink(".", file);
         return undo;
       }},
      {"a pipe in its place",
       [](const fs::path& file) {
         Undo undo = setAside(file);
         EXPECT_EQ(::mkfifo(file.c_str(), 0600), 0);
         return undo;
       }},
  };
  return kMutations;
}

const std::vector<NamedMutation>& linkMutations() {
  const auto retargeted = [](const char* target) {
    return [target](const fs::path& link) {
      Undo undo = setAside(link);
      fs::create_symlink(target, link);
      return undo;
    };
  };
  static const std::vector<NamedMutation> kMutations{
      {"removal", [](const fs::path& link) { return setAside(link); }},
      {"another target", retargeted("Resources")},
      {"itself as its target", retargeted("Versions/Current/Versions")},
      {"a target outside", retargeted("../../../../../../../../../../../../etc")},
      {"an absolute target", retargeted("/etc/hostname")},
      {"a copy of its target in its place",
       [](const fs::path& link) {
         const fs::path target = fs::canonical(link);
         Undo undo = setAside(link);
         fs::copy(target, link, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
         return undo;
       }},
  };
  return kMutations;
}

const std::vector<NamedMutation>& directoryMutations() {
  static const std::vector<NamedMutation> kMutations{
      {"an added file",
       [](const fs::path& directory) {
         test::writeFile(directory / "added", "added");
         return [=] { fs::remove(directory / "added"); };
       }},
      {"an added link",
       [](const fs::path& directory) {
         fs::create_symlink(".", directory / "added");
         return [=] { fs::remove(directory / "added"); };
       }},
      {"an added directory with a file",
       [](const fs::path& directory) {
         test::writeFile(directory / "added.framework/Versions/A/added", "added");
         return [=] { fs::remove_all(directory / "added.framework"); };
       }},
      {"removal", [](const fs::path& directory) { return setAside(directory); }},
      {"a link in its place",
       [](const fs::path& directory) {
         Undo undo = setAside(directory);
         fs::create_directory_symlink("../../" + directory.parent_path().parent_path().filename().native(),
                                      directory);
         return undo;
       }},
  };
  return kMutations;
}

bool isLocalisation(const std::string& path) {
  return path.find("Resources/") != std::string::npos && path.find(".lproj") != std::string::npos &&
         path.find("Base.lproj") == std::string::npos;
}

bool holdsOnlyLocalisations(const fs::path& directory) {
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    if (!entry.is_directory() && !isLocalisation(entry.path().native()))
      return false;
  }
  return true;
}

/// What binds nothing: files that the seal's own rules leave out, the notarization ticket, localisations,
/// which a user may remove, and a framework's outer links, which may be missing and lead to the current
/// version's items if not.
bool isExplained(const fs::path& item, const std::string& path, const std::string& mutation) {
  const bool omitted = path == "Contents/PkgInfo" || path == "Contents/CodeResources" ||
                       path.ends_with(".DS_Store") || path.ends_with("locversion.plist");
  const bool outerLink = fs::path(path).parent_path().extension() == ".framework" && fs::is_symlink(item);
  const bool localisation = isLocalisation(path) || (fs::is_directory(item) && holdsOnlyLocalisations(item));
  return omitted || ((localisation || outerLink) && mutation == "removal");
}

struct Tally {
  int tried = 0;
  int explained = 0;
};

void tryAll(const SigningWorkshop& workshop, const fs::path& application, const fs::path& item,
            const std::vector<NamedMutation>& mutations, Tally& tally) {
  const std::string path = item.lexically_relative(application).native();
  for (const NamedMutation& mutation : mutations) {
    const Undo undo = mutation.apply(item);
    const Verdict verdict = workshop.judge(application, test::sampleRequirement());
    undo();
    ++tally.tried;
    if (verdict.accepted() && isExplained(item, path, mutation.name))
      ++tally.explained;
    else
      EXPECT_FALSE(verdict.accepted()) << path << ": " << mutation.name;
    EXPECT_NE(verdict.status, platform::errSecCSReqFailed) << path << ": " << verdict.sentence;
  }
}

class MutatedApplication : public testing::TestWithParam<test::SampleExecutable> {};

TEST_P(MutatedApplication, isRefused) {
  const SigningWorkshop workshop;
  const fs::path application = workshop.signedApplication({.executable = GetParam()});
  std::vector<fs::path> items{application};
  for (const auto& entry : fs::recursive_directory_iterator(application))
    items.push_back(entry.path());
  Tally tally;
  for (const fs::path& item : items) {
    if (fs::is_symlink(item))
      tryAll(workshop, application, item, linkMutations(), tally);
    else if (fs::is_regular_file(item))
      tryAll(workshop, application, item, fileMutations(), tally);
    else if (item != application)
      tryAll(workshop, application, item, directoryMutations(), tally);
  }
  tryAll(workshop, application, application, {directoryMutations()[0], directoryMutations()[1]}, tally);
  const Verdict verdict = workshop.judge(application, test::sampleRequirement());
  EXPECT_TRUE(verdict.accepted()) << "not restored: " << verdict.sentence;
  std::cout << tally.tried << " mutations of " << items.size() << " items, " << tally.explained
            << " accepted and explained\n";
  EXPECT_GT(tally.tried, 500);
}

INSTANTIATE_TEST_SUITE_P(Executables, MutatedApplication,
                         testing::Values(test::SampleExecutable::script, test::SampleExecutable::machO));

}  // namespace
