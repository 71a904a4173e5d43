#include "platform/files/url.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/helpers/files.hpp"

namespace fs = std::filesystem;
using platform::URL;

namespace {

TEST(URLTest, FileURLsHaveAbsolutePathsThatAreTakenApart) {
  const std::string current = fs::current_path().native();
  struct Case {
    const char* text;
    std::string path, name, extension, parent;
  };
  const Case cases[] = {
      {"///", "/", "/", "", "/"},
      {"x y/", current + "/x y", "x y", "", current},
      {"/a//Quorin Ostreval.app//", "/a//Quorin Ostreval.app", "Quorin Ostreval.app", "app", "/a"},
      {"/a.b/c", "/a.b/c", "c", "", "/a.b"},
      {"/x.tar.GZ", "/x.tar.GZ", "x.tar.GZ", "GZ", "/"},
      {"/a/..", "/a/..", "..", "", "/a/../.."}};
  for (const auto& [text, path, name, extension, parent] : cases) {
    const URL url = URL::fileURLWithPath(text);
    EXPECT_EQ(url.path(), path) << text;
    EXPECT_EQ(url.lastPathComponent(), name) << text;
    EXPECT_EQ(url.pathExtension(), extension) << text;
    EXPECT_EQ(url.deletingLastPathComponent().path(), parent) << text;
  }
}

TEST(URLTest, TheStandardFormNamesTheSameLocation) {
  const test::TemporaryDirectory directory;
  const std::string root = fs::canonical(directory.path()).native();
  fs::create_directories(directory / "real/inner");
  fs::create_directory_symlink(directory / "real/inner", directory / "link");
  fs::create_directory_symlink("nowhere", directory / "dangling");
  const std::pair<std::string, std::string> cases[] = {{root + "/./a//b/.", root + "/a/b"},
                                                       {root + "/missing/../a", root + "/a"},
                                                       {root + "/link", root + "/link"},
                                                       {root + "/link/../a", root + "/real/a"},
                                                       {root + "/link/x/../../a", root + "/real/a"},
                                                       {root + "/dangling/../a", root + "/a"},
                                                       {"/..", "/"},
                                                       {"/../../etc", "/etc"}};
  for (const auto& [path, standard] : cases)
    EXPECT_EQ(URL::fileURLWithPath(path).standardizedFileURL().path(), standard) << path;
}

}  // namespace
