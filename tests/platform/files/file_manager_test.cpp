#include "platform/files/file_manager.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/files/directory.hpp"
#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/private_mounts.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/rename_fates.hpp"
#include "tests/helpers/syscall_fault.hpp"

namespace fs = std::filesystem;
using platform::ItemReplacementOptions;
using platform::NSFileManager;
using platform::SystemError;
using platform::URL;
using test::inventory;
using test::writeFile;

namespace {

const NSFileManager& manager() {
  return NSFileManager::defaultManager();
}

URL url(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

/// The error number that `operation` fails with; 0 when it does not fail.
template <typename Operation>
int failureOf(Operation operation) {
  try {
    operation();
    return 0;
  } catch (const SystemError& error) {
    return error.errorNumber();
  }
}

class FileManagerTest : public testing::Test {
 protected:
  /// Removes the item as an ordinary user who owns everything here, and returns how it failed.
  int removalByOwner(const char* name) const {
    const auto remove = [&] { return failureOf([&] { manager().removeItemAtURL(url(directory / name)); }); };
    if (::getuid() != 0)
      return remove();
    constexpr uid_t kOwner = 65534;
    EXPECT_EQ(::chown(directory.path().c_str(), kOwner, ::getgid()), 0);
    for (const auto& entry : fs::recursive_directory_iterator(directory.path()))
      EXPECT_EQ(::chown(entry.path().c_str(), kOwner, ::getgid()), 0);
    return test::inChild([&] { return ::setuid(kOwner) != 0 ? 1 : remove(); });
  }

  test::TemporaryDirectory directory;
};

TEST_F(FileManagerTest, ANullCharacterNeverCutsAPathShort) {
  writeFile(directory / "kept", "");
  const URL cut = URL::fileURLWithPath((directory / "kept").native() + std::string(1, '\0') + "x");
  EXPECT_FALSE(manager().fileExistsAtPath(cut.path()));
  EXPECT_EQ(failureOf([&] { manager().removeItemAtURL(cut); }), EINVAL);
  EXPECT_EQ(failureOf([&] { manager().moveItemAtURL(cut, url(directory / "moved")); }), EINVAL);
  EXPECT_TRUE(fs::exists(directory / "kept"));
}

TEST_F(FileManagerTest, WhatMayNotBeLookedAtIsNotSeenButNotGoneEither) {
  using platform::ItemPresence;
  const std::string there = directory.path().native();
  EXPECT_EQ(manager().presenceOfItemAtPath(there), ItemPresence::present);
  EXPECT_EQ(manager().presenceOfItemAtPath(there + "/missing/x"), ItemPresence::absent);
  EXPECT_EQ(test::inChild([&] {
              return test::inject({SYS_newfstatat, EACCES}) && !manager().fileExistsAtPath(there) &&
                             manager().presenceOfItemAtPath(there) == ItemPresence::unknown
                         ? 0
                         : 1;
            }),
            0);
}

TEST_F(FileManagerTest, AHeldItemIsSparedUnderWhateverName) {
  writeFile(directory / "item/file", "");
  writeFile(directory / "other/inner/file", "");
  fs::create_directory_symlink("other", directory / "link");
  const platform::HeldItem held(url(directory / "item"));
  const platform::HeldItem heldLink(url(directory / "link"));
  fs::rename(directory / "item", directory / "other/inner/item");
  const auto failure = [&](const char* name, const platform::HeldItem& spared) {
    return failureOf([&] { manager().removeItemAtURL(url(directory / name), spared); });
  };
  EXPECT_EQ(failure("other/inner/item", held), EBUSY);
  EXPECT_EQ(failure("other", held), EBUSY);
  EXPECT_EQ(failure("link", heldLink), EBUSY);
  EXPECT_EQ(failure("link", platform::HeldItem()), EBADF);
  EXPECT_TRUE(fs::exists(directory / "other/inner/item/file") && fs::is_symlink(directory / "link"));
  EXPECT_EQ(failure("link", held), 0);
  EXPECT_EQ(failure("other", heldLink), 0);
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(FileManagerTest, RemovesTreesAndNeverFollowsLinks) {
  writeFile(directory / "outside/kept", "");
  writeFile(directory / "tree/a/b/file", "");
  writeFile(directory / "tree/c/file", "");
  fs::create_directory_symlink(directory / "outside", directory / "tree/a/link");
  fs::create_directory_symlink("nowhere", directory / "tree/dangling");
  fs::create_directory_symlink(directory / "outside", directory / "link");
  manager().removeItemAtURL(url(directory / "tree"));
  manager().removeItemAtURL(url(directory / "link"));
  EXPECT_THAT(inventory(directory.path()),
              testing::ElementsAre(testing::Key("outside"), testing::Key("outside/kept")));
}

TEST_F(FileManagerTest, APathThatEndsInDotsMeansTheItemAndNothingAboveIt) {
  for (const char* path :
       {"a/Item.app/.", "a/Item.app/Contents/..", "a/Item.app/./", "a/Item.app/Contents/../."}) {
    writeFile(directory / "a/Item.app/Contents/file", "");
    writeFile(directory / "a/neighbour", "");
    manager().removeItemAtURL(url(directory / path));
    EXPECT_THAT(inventory(directory.path()),
                testing::ElementsAre(testing::Key("a"), testing::Key("a/neighbour")))
        << path;
  }
  fs::create_directory(directory / "a/from");
  manager().moveItemAtURL(url(directory / "a/from/."), url(directory / "a/to/."));
  EXPECT_TRUE(fs::is_directory(directory / "a/to"));
  // Looked at where nothing is removed yet.
  for (const char* path : {"/", "/..", "/a/.."})
    EXPECT_EQ(failureOf([&] { platform::Entry::at(URL::fileURLWithPath(path)); }), EINVAL) << path;
}

TEST_F(FileManagerTest, RemovesWhatTheOwnerHadClosedToHimself) {
  writeFile(directory / "tree/closed/inner/file", "");
  writeFile(directory / "tree/listed/file", "");
  fs::create_directory(directory / "tree/empty");
  for (const auto& [name, mode] :
       {std::pair("listed", 0400), {"empty", 0400}, {"closed/inner", 0500}, {"closed", 0}})
    fs::permissions(directory / "tree" / name, fs::perms(mode));
  EXPECT_EQ(removalByOwner("tree"), 0);
  EXPECT_FALSE(fs::exists(directory / "tree"));
  // But the directory that holds the item keeps its permissions.
  writeFile(directory / "shared/item/file", "");
  fs::permissions(directory / "shared", fs::perms(0555));
  EXPECT_EQ(removalByOwner("shared/item"), EACCES);
  EXPECT_EQ(fs::status(directory / "shared").permissions(), fs::perms(0555));
  fs::permissions(directory / "shared", fs::perms::owner_all);
}

TEST_F(FileManagerTest, WhatIsMountedInATreeIsNotRemoved) {
  const fs::path place = directory / "tree/folder/mounted";
  fs::create_directories(place);
  const int result = test::inChild([&] {
    if (!test::enterPrivateMounts() || ::mount("none", place.c_str(), "tmpfs", 0, nullptr) != 0)
      return -1;
    writeFile(place / "folder/file", "of somebody else");
    const int failure = failureOf([&] { manager().removeItemAtURL(url(directory / "tree")); });
    return fs::exists(place / "folder/file") ? failure : 0;
  });
  if (result == 255)
    GTEST_SKIP() << "nothing can be mounted";
  EXPECT_EQ(result, EBUSY);
}

TEST_F(FileManagerTest, MovesNeverOverwrite) {
  writeFile(directory / "from/file", "new");
  writeFile(directory / "file", "");
  fs::create_hard_link(directory / "file", directory / "other name");
  fs::create_directory(directory / "empty");
  fs::create_directory_symlink("nowhere", directory / "dangling");
  const auto before = inventory(directory.path());
  const auto move = [&](const char* from, const char* to) {
    return failureOf([&] { manager().moveItemAtURL(url(directory / from), url(directory / to)); });
  };
  const auto refusals = [&] {
    for (const char* taken : {"file", "empty", "dangling", "from"})
      EXPECT_EQ(move("from", taken), EEXIST) << taken;
    EXPECT_EQ(move("file", "other name"), EEXIST);
    EXPECT_EQ(move("from", "from/in"), EINVAL);
    EXPECT_EQ(inventory(directory.path()), before);
    return testing::Test::HasFailure() ? 1 : 0;
  };
  EXPECT_EQ(refusals(), 0);
  // A file system that cannot promise it; and one that cannot save the names, where the move has happened.
  const test::SyscallFault noPromise{SYS_renameat2, EINVAL,
                                     test::SyscallFault::Argument{4, RENAME_NOREPLACE}};
  EXPECT_EQ(test::inChild([&] { return test::inject(noPromise) ? refusals() + move("from", "to") : 124; }),
            0);
  EXPECT_EQ(test::inChild([&] { return test::inject({SYS_fsync, EIO}) ? move("to", "again") : 124; }), 0);
  EXPECT_EQ(test::readFile(directory / "again/file"), "new");
  EXPECT_FALSE(fs::exists(directory / "from") || fs::exists(directory / "to"));
}

class ReplacementTest : public FileManagerTest {
 protected:
  void SetUp() override {
    writeFile(directory / "Target.app/version", "old");
    writeFile(directory / ".staged.app/version", "new");
    before = inventory(directory.path());
  }

  void replace() const {
    manager().replaceItemAt(url(directory / "Target.app"), url(directory / ".staged.app"), ".backup.app",
                            ItemReplacementOptions::withoutDeletingBackupItem);
  }

  void expectReplaced() const {
    EXPECT_EQ(test::readFile(directory / "Target.app/version"), "new");
    EXPECT_EQ(test::readFile(directory / ".backup.app/version"), "old");
    EXPECT_FALSE(fs::exists(directory / ".staged.app"));
  }

  std::map<std::string, std::string> before;
};

TEST_F(ReplacementTest, ThePreviousItemNeverTakesTheStagedName) {
  // The swap can be neither kept nor taken back.
  EXPECT_EQ(test::inChild([&] {
              test::renameFates = 1 * 4 * 4;  // the third
              return test::inject({SYS_fsync, EIO}) ? failureOf([&] { replace(); }) : 124;
            }),
            EIO);
  expectReplaced();
}

TEST_F(ReplacementTest, RefusesWhatWouldLoseSomething) {
  writeFile(directory / ".backup.app/version", "older");
  before = inventory(directory.path());
  EXPECT_EQ(failureOf([&] { replace(); }), EEXIST);
  EXPECT_EQ(inventory(directory.path()), before);
  fs::remove_all(directory / ".backup.app");
  fs::remove_all(directory / "Target.app");
  EXPECT_EQ(failureOf([&] { replace(); }), ENOENT);
  EXPECT_EQ(test::readFile(directory / ".staged.app/version"), "new");
  for (const char* name : {"", ".", "..", "a/b", "/"})
    EXPECT_EQ(failureOf([&] {
                manager().replaceItemAt(url(directory / "Target.app"), url(directory / ".staged.app"), name,
                                        ItemReplacementOptions::withoutDeletingBackupItem);
              }),
              EINVAL)
        << name;
}

}  // namespace
