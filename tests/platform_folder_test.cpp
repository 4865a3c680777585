// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <functional>
#include <set>

#include "platform/AtomicFile.h"
#include "platform/OpenFolder.h"
#include "platform/Text.h"
#include "support/Content.h"
#include "support/ErrorOf.h"
#include "support/System.h"
#include "support/TempFolder.h"

namespace {

namespace fs = boost::filesystem;
namespace errc = boost::system::errc;
using namespace Kelta::platform;
using Kelta::test::errorOf;
using Kelta::test::readFile;
using Kelta::test::TempFolder;

/// "name=content" of the files, "name" of all else, in order.
std::string contentsOf(const OpenFolder& folder) {
  std::set<std::string> entries;
  for (const fs::path& name : folder.list()) {
    const bool file = folder.look(name).stamp.kind == Kind::file;
    entries.insert(utf8(name) + (file ? "=" + readFile(folder.path() / name) : ""));
  }
  std::string text;
  for (const std::string& entry : entries) text += (text.empty() ? "" : " ") + entry;
  return text;
}

/// The same renames by path and by open folder.
struct Renames {
  std::function<void(const char*, const char*)> replace;
  std::function<bool(const char*, const char*)> move, exchange;
};

Renames byPath(const fs::path& folder) {
  return {[=](const char* from, const char* to) { replaceFile(folder / from, folder / to); },
          [=](const char* from, const char* to) { return moveFile(folder / from, folder / to); },
          [=](const char* from, const char* to) { return exchangeFiles(folder / from, folder / to); }};
}

Renames byFolder(const OpenFolder& folder) {
  const auto id = [=](const char* name) { return folder.look(name).id; };
  return {[=](const char* from, const char* to) { folder.replace(from, id(from), folder, to); },
          [=](const char* from, const char* to) { return folder.move(from, id(from), folder, to); },
          [=](const char* from, const char* to) { return folder.exchange(from, id(from), folder, to); }};
}

TEST(PlatformFolder, RenamesReplaceExchangeOrLeaveWhatIsThere) {
  for (const bool open : {false, true}) {
    const TempFolder temp;
    const OpenFolder folder(temp.path());
    const Renames renames = open ? byFolder(folder) : byPath(temp.path());
    for (const char* name : {"a", "b"}) writeWholeFile(temp / name, name);
    EXPECT_FALSE(renames.move("a", "b"));
    EXPECT_EQ(contentsOf(folder), "a=a b=b");
    if (renames.exchange("a", "b")) {
      EXPECT_EQ(contentsOf(folder), "a=b b=a");
      EXPECT_TRUE(renames.exchange("b", "a"));
    }
    EXPECT_EQ(errorOf([&] { renames.exchange("a", "none"); }), errc::no_such_file_or_directory);
    EXPECT_TRUE(errorOf([&] { renames.replace("none", "b"); }));
    EXPECT_TRUE(errorOf([&] { renames.move("none", "c"); }));
    EXPECT_EQ(contentsOf(folder), "a=a b=b");
    renames.replace("a", "b");
    EXPECT_TRUE(renames.move("b", "c"));
    EXPECT_EQ(contentsOf(folder), "c=a") << "open: " << open;
  }
}

TEST(PlatformFolder, WhatIsDoneByNameIsDoneToTheEntryThatIsMeant) {
  const TempFolder temp;
  const OpenFolder root(temp.path());
  const OpenFolder folder = root.makeFolder("folder");
  EXPECT_EQ(root.makeFolder("folder").path(), folder.path());
  File file = folder.open("f", File::Mode::createNew);
  file.write("text", 4);
  const EntryId id = file.id();
  file.close();
  EXPECT_EQ(folder.look("f").id, id);
  EXPECT_EQ(folder.look("f").stamp.size, 4U);
  EXPECT_EQ(folder.look("none").stamp.kind, Kind::missing);
  File again = folder.open("f", File::Mode::adjust);
  EXPECT_TRUE(again.id() == id && again.setLastWriteTime(1000000007000000000));
  EXPECT_EQ(folder.look("f").stamp.nanoseconds, 1000000007000000000);
  again.close();

  // Another file by now.
  writeWholeFile(temp / "folder/other", "other");
  const EntryId other = folder.look("other").id;
  const std::function<void()> acts[] = {
      [&] { folder.replace("f", other, root, "g"); }, [&] { folder.move("f", other, root, "g"); },
      [&] { folder.exchange("f", other, folder, "other"); }, [&] { folder.removeFile("f", other); },
      [&] { root.removeFolder("folder", other); }};
  for (const auto& act : acts) EXPECT_EQ(errorOf(act), errc::no_such_file_or_directory);
  EXPECT_EQ(contentsOf(folder), "f=text other=other");

  EXPECT_TRUE(errorOf([&] { root.removeFolder("folder", root.look("folder").id); })) << "not empty";
  EXPECT_TRUE(errorOf([&] { root.removeFile("folder", root.look("folder").id); })) << "no file";
  EXPECT_TRUE(folder.move("f", id, root, "g"));
  EXPECT_TRUE(root.removeFile("g", id));
  EXPECT_FALSE(root.removeFile("g", id)) << "gone already";
  EXPECT_TRUE(folder.removeFile("other", other));
  EXPECT_EQ(contentsOf(root), "folder");
  EXPECT_EQ(errorOf([&] { root.folder("none"); }), errc::no_such_file_or_directory);
  for (const char* name : {"", ".", "..", "folder/f"}) {
    EXPECT_EQ(root.look(name).stamp.kind, Kind::other) << name;
    EXPECT_EQ(errorOf([&] { root.makeFolder(name); }), errc::invalid_argument) << name;
    EXPECT_EQ(errorOf([&] { root.open(name, File::Mode::createNew); }), errc::invalid_argument) << name;
  }
}

TEST(PlatformFolder, NoStepAndNoFileIsReachedThroughALink) {
  const TempFolder temp;
  fs::create_directories(temp / "real/below");
  writeWholeFile(temp / "real/file", "x");
  if (!Kelta::test::makeLink(temp / "real", temp / "link")) GTEST_SKIP() << "no links here";
  Kelta::test::makeLink(temp / "real/file", temp / "to file");
  Kelta::test::makeLink(temp / "nothing", temp / "dangling");
  const OpenFolder root(temp.path());
  for (const char* name : {"link", "to file", "dangling"}) {
    EXPECT_EQ(errorOf([&] { root.folder(name); }), errc::not_a_directory) << name;
    EXPECT_EQ(errorOf([&] { root.makeFolder(name); }), errc::not_a_directory) << name;
    EXPECT_TRUE(errorOf([&] { root.open(name, File::Mode::read); })) << name;
    EXPECT_EQ(errorOf([&] { root.open(name, File::Mode::createNew); }), errc::file_exists) << name;
    EXPECT_EQ(root.look(name).stamp.kind, Kind::symlink);
  }
  EXPECT_EQ(stampOf(temp / "nothing").kind, Kind::missing);
  // What the user named may be a link.
  EXPECT_EQ(contentsOf(OpenFolder(temp / "link")), "below file=x");
  EXPECT_TRUE(errorOf([&] { OpenFolder(temp / "to file"); }));
  EXPECT_TRUE(root.removeFile("link", root.look("link").id));
  EXPECT_EQ(readFile(temp / "real/file"), "x");
}

}  // namespace
