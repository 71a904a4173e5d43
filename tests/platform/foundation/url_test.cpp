#include "platform/foundation/url.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/files.hpp"

namespace fs = std::filesystem;
using platform::URL;

namespace {

TEST(URLTest, FileURLsHaveAbsolutePathsWithoutSlashesAtTheEnd) {
  const std::string current = fs::current_path().native();
  const std::pair<const char*, std::string> cases[] = {{"/", "/"},
                                                       {"///", "/"},
                                                       {"/a/b", "/a/b"},
                                                       {"/a/b///", "/a/b"},
                                                       {"/a//b", "/a//b"},
                                                       {"", current},
                                                       {"x y", current + "/x y"},
                                                       {"x/", current + "/x"},
                                                       {"/a/../b", "/a/../b"}};
  for (const auto& [text, path] : cases)
    EXPECT_EQ(URL::fileURLWithPath(text).path(), path) << '"' << text << '"';
}

TEST(URLTest, TakesPathsApart) {
  struct Case {
    const char *path, *name, *extension, *parent;
  };
  const Case cases[] = {{"/a/Quorin Ostreval.app", "Quorin Ostreval.app", "app", "/a"},
                        {"/a.b/c", "c", "", "/a.b"},
                        {"/x.tar.GZ", "x.tar.GZ", "GZ", "/"},
                        {"/a/x.", "x.", "", "/a"},
                        {"/", "/", "", "/"},
                        {"/a/..", "..", "", "/a/../.."}};
  for (const Case& expected : cases) {
    const URL url = URL::fileURLWithPath(expected.path);
    EXPECT_EQ(url.lastPathComponent(), expected.name) << expected.path;
    EXPECT_EQ(url.pathExtension(), expected.extension) << expected.path;
    EXPECT_EQ(url.deletingLastPathComponent().path(), expected.parent) << expected.path;
  }
}

TEST(URLTest, AppendsOneOrSeveralComponents) {
  EXPECT_EQ(URL::fileURLWithPath("/").appendingPathComponent("a").path(), "/a");
  EXPECT_EQ(URL::fileURLWithPath("/a").appendingPathComponent("Contents/Info.plist").path(),
            "/a/Contents/Info.plist");
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
