// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "platform/AtomicFile.h"
#include "platform/Files.h"
#include "platform/LockFile.h"
#include "platform/Random.h"
#include "platform/Text.h"
#include "platform/Utf8.h"
#include "support/Content.h"
#include "support/ErrorOf.h"
#include "support/TempFolder.h"

namespace {

namespace fs = boost::filesystem;
using namespace Kelta::platform;
using Kelta::test::errorOf;
using Kelta::test::readFile;
using Kelta::test::TempFolder;

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    names.push_back(utf8(entry.path().filename()));
  std::sort(names.begin(), names.end());
  return names;
}

std::u16string utf16(const std::string& text) {
  std::u16string wide;
  const char* at = text.data();
  while (at != text.data() + text.size()) putWide(wide, takeUtf8(at, text.data() + text.size()));
  return wide;
}

std::string fromUtf16(const std::u16string& wide) {
  std::string text;
  const char16_t* at = wide.data();
  while (at != wide.data() + wide.size()) putUtf8(text, takeWide(at, wide.data() + wide.size()));
  return text;
}

TEST(PlatformText, Utf8AgreesWithBothWideForms) {
  const struct {
    const char* utf8Text;
    const wchar_t* wide;
    const char16_t* wide16;
  } rows[] = {{"", L"", u""},
              {"plain", L"plain", u"plain"},
              {"\x7F\xC2\x80\xDF\xBF", L"\u007F\u0080\u07FF", u"\u007F\u0080\u07FF"},
              {"\xE0\xA0\x80\xED\x9F\xBF", L"\u0800\uD7FF", u"\u0800\uD7FF"},
              {"\xEE\x80\x80\xEF\xBF\xBF", L"\uE000\uFFFF", u"\uE000\uFFFF"},
              {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF", u"\U00010000\U0010FFFF"},
              {"a\xF0\x9F\x98\x80z", L"a\U0001F600z", u"a\xD83D\xDE00z"}};
  for (const auto& row : rows) {
    std::wstring wide;
    EXPECT_TRUE(wideFromUtf8(row.utf8Text, wide)) << row.utf8Text;
    EXPECT_EQ(wide, row.wide);
    EXPECT_EQ(utf8(std::wstring(row.wide)), row.utf8Text);
    EXPECT_EQ(utf16(row.utf8Text), row.wide16);
    EXPECT_EQ(fromUtf16(row.wide16), row.utf8Text);
    EXPECT_EQ(wideOf(pathOf(row.wide)), row.wide);
  }
}

TEST(PlatformText, InvalidUtf8IsRefusedAndReadable) {
  const std::pair<const char*, std::wstring> rows[] = {
      {"\x80", L"\uFFFD"},                      // nothing leads
      {"a\xC3", L"a\uFFFD"},                    // ends too early
      {"\xE2\x82z", L"\uFFFDz"},                //
      {"\xC0\xAF", L"\uFFFD\uFFFD"},            // overlong "/"
      {"\xC1\xBF", L"\uFFFD\uFFFD"},            //
      {"\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"},  //
      {"\xF0\x8F\xBF\xBF", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
      {"\xF5\x80\xFF", L"\uFFFD\uFFFD\uFFFD"}};
  for (const auto& row : rows) {
    std::wstring wide = L"left over";
    EXPECT_FALSE(wideFromUtf8(row.first, wide)) << row.first;
    EXPECT_EQ(wide, L"");
    EXPECT_EQ(readableFromUtf8(row.first), row.second);
  }
}

TEST(PlatformText, LoneSurrogatesBecomeTheReplacementCharacter) {
  const std::pair<std::u16string, const char*> rows[] = {{{0xD83D}, "\xEF\xBF\xBD"},
                                                         {{0xDE00}, "\xEF\xBF\xBD"},
                                                         {{0xD83D, 'x'}, "\xEF\xBF\xBDx"},
                                                         {{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
                                                         {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"}};
  for (const auto& row : rows) EXPECT_EQ(fromUtf16(row.first), row.second);
  EXPECT_EQ(utf8(std::wstring(1, static_cast<wchar_t>(0xD83D)) + L"x"), "\xEF\xBF\xBDx");
  const std::u32string beyond = {0xD800, 0x110000};
  const char32_t* at = beyond.data();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(takeWide(at, beyond.data() + 2), noCharacter);
}

TEST(PlatformFiles, StampsTellFilesApart) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "12345");
  EXPECT_EQ(stampOf(temp / "none").kind, Kind::missing);
  EXPECT_EQ(stampOf(temp / "file/below").kind, Kind::missing);
  EXPECT_EQ(stampOf(temp.path()).kind, Kind::folder);
  // 100 ns is what every file system in use keeps; times before 1970 are rounded down, too.
  const std::pair<std::int64_t, std::int64_t> times[] = {{1700000000123456700, 1700000000},
                                                         {1700000000000000000, 1700000000},
                                                         {0, 0},
                                                         {-100, -1},
                                                         {-1000000000, -1},
                                                         {-2000000000000000000, -2000000000},
                                                         {2147483648000000000, 2147483648},
                                                         {5000000000000000100, 5000000000}};
  fs::create_directory(temp / "folder");
  for (const auto& time : times) {
    for (const char* name : {"file", "folder"}) {
      ASSERT_TRUE(setLastWriteTime(temp / name, time.first));
      EXPECT_EQ(stampOf(temp / name).nanoseconds, time.first) << name;
    }
    const FileStamp stamp = stampOf(temp / "file");
    EXPECT_EQ(stamp.seconds(), time.second);
    EXPECT_EQ(stamp.kind, Kind::file);
    EXPECT_EQ(stamp.size, 5u);
    EXPECT_TRUE(File(temp / "file", File::Mode::read).stamp().sameContent(stamp));
  }
  File fresh(temp / "fresh", File::Mode::createNew);
  fresh.write("text", 4);
  EXPECT_TRUE(fresh.setLastWriteTime(-1500000000));
  fresh.close();
  EXPECT_EQ(stampOf(temp / "fresh").seconds(), -2);
  EXPECT_FALSE(setLastWriteTime(temp / "none", 0));
}

TEST(PlatformFiles, FileReadsWhatWasWrittenAndRefusesWhatIsNoFile) {
  const TempFolder temp;
  File file(temp / "f", File::Mode::createNew);
  file.write("0123456789", 10);
  file.seek(4);
  char buffer[16] = {};
  EXPECT_EQ(file.read(buffer, 3), 3u);
  EXPECT_EQ(file.position(), 7u);
  EXPECT_EQ(file.read(buffer + 3, 10), 3u);
  EXPECT_STREQ(buffer, "456789");
  EXPECT_EQ(file.read(buffer, 1), 0u);
  file.close();
  EXPECT_TRUE(errorOf([&] { file.write("x", 1); }));
  EXPECT_TRUE(errorOf([&] { file.close(); }));
  EXPECT_EQ(errorOf([&] { File(temp / "f", File::Mode::createNew); }), boost::system::errc::file_exists);
  EXPECT_EQ(errorOf([&] { File(temp / "none", File::Mode::read); }), boost::system::errc::no_such_file_or_directory);
  EXPECT_TRUE(errorOf([&] { File(temp.path(), File::Mode::read); }));
  EXPECT_TRUE(errorOf([&] { File(temp / "f", File::Mode::read).write("x", 1); }));
  EXPECT_EQ(readFile(temp / "f"), "0123456789");
}

TEST(PlatformFiles, OnlyAnEmptyFolderIsRecycled) {
  const TempFolder temp;
  fs::create_directory(temp / "folder");
  writeWholeFile(temp / "folder/new", "x");
  EXPECT_FALSE(recycle(temp / "folder"));
  EXPECT_EQ(readFile(temp / "folder/new"), "x");
  fs::remove(temp / "folder/new");
  EXPECT_TRUE(recycle(temp / "folder"));
  EXPECT_TRUE(recycle(temp / "folder"));
  EXPECT_EQ(namesIn(temp.path()), std::vector<std::string>{});
}

TEST(PlatformFiles, OrdinaryFilesAloneAreLockedOrOpenForWriting) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "x");
  for (const fs::path& path : {temp / "file", temp / "none", temp.path()})
    EXPECT_FALSE(isLocked(path) || isOpenForWriting(path)) << path;
}

TEST(PlatformFiles, LiesBelowMindsComponents) {
  EXPECT_TRUE(liesBelow(L"/a/b", L"/a/b") && liesBelow(L"/a/b/c", L"/a/b") && samePath(L"/a/b", L"/a/b"));
  for (const wchar_t* path : {L"/a/bc", L"/a", L""})
    EXPECT_FALSE(liesBelow(path, L"/a/b") || samePath(path, L"/a/b")) << utf8(std::wstring(path));
}

TEST(PlatformAtomicFile, TheTargetIsOldOrNewAndNothingStaysBehind) {
  const TempFolder temp;
  writeWholeFile(temp / "target", "old");
  std::string temporary;
  {
    AtomicFile output(temp / "target");
    output.file().write("unfinished", 10);
    temporary = utf8(output.temporary().filename());
    EXPECT_TRUE(isTemporaryName(temporary));
    EXPECT_FALSE(isAbandoned(temporary));
    EXPECT_EQ(output.temporary().parent_path(), temp.path());
    EXPECT_EQ(readFile(temp / "target"), "old");
  }
  EXPECT_TRUE(isAbandoned(temporary));
  EXPECT_EQ(readFile(temp / "target"), "old");
  EXPECT_EQ(namesIn(temp.path()), std::vector<std::string>{"target"});
  writeWholeFile(temp / "target", std::string("new\0", 4));
  EXPECT_EQ(readFile(temp / "target"), std::string("new\0", 4));
  EXPECT_FALSE(AtomicFile(temp / "target").commitNew());
  fs::create_directories(temp / "folder/full");
  EXPECT_TRUE(errorOf([&] { writeWholeFile(temp / "folder", "x"); }));
  EXPECT_TRUE(errorOf([&] { writeWholeFile(temp / "none/target", "x"); }));
  EXPECT_EQ(namesIn(temp.path()), (std::vector<std::string>{"folder", "target"}));
}

TEST(PlatformLockFile, KeepsOthersOutAsLongAsItLives) {
  const TempFolder folder;
  writeWholeFile(folder / "lock", "1 elsewhere\n");
  {
    LockFile first(folder / "lock");
    ASSERT_TRUE(first.taken()) << "what is in the file decides nothing";
    first.setNote("42\n");
    const LockFile second(folder / "lock");
    EXPECT_FALSE(second.taken());
    EXPECT_EQ(second.note(), "42\n");
  }
  const LockFile later(folder / "lock");
  EXPECT_TRUE(later.taken() && later.note().empty());
  fs::create_directory(folder / "folder");
  EXPECT_TRUE(errorOf([&] { const LockFile none(folder / "folder"); }).failed());
}

TEST(PlatformAtomicFile, TemporaryNamesTellWhoseTheyAre) {
  const std::string own = temporaryName();
  EXPECT_NE(own, temporaryName());
  const std::string start = own.substr(0, 19);
  const std::string gone = start + "9999999999-00000000";  // no system has a process of that number
  const std::string elsewhere = ".~kelsync-" + std::string(start[10] == '0' ? "1" : "0") + gone.substr(11);
  for (const std::string& name : {own, gone, elsewhere}) {
    EXPECT_TRUE(isTemporaryName(name)) << name;
    EXPECT_EQ(isAbandoned(name), name == gone) << name;
  }
  for (const std::string& name :
       {start + std::to_string(processId()) + "-0000000g", start + "-00000000", start + "0-00000000",
        start + "007-00000000", start + "99999999999999999999-00000000", start + "12a-00000000", start + "12-0000000",
        own + "0", "x" + own, std::string(".~kelsync-0123456789-00000000"), std::string(".~kelsync-"), std::string()})
    EXPECT_FALSE(isTemporaryName(name) || isAbandoned(name)) << name;
  // What was taken out of its place is nobody's to remove before it was looked at.
  const FileStamp judged{Kind::file, -1500000001, 7};
  const FileStamp fresh{Kind::file, 1600000000123456789, std::uint64_t{1} << 40};
  std::string longName;
  for (int i = 0; i < 110; ++i) longName += "\xC3\xA4";
  longName += ".kelta";
  for (const std::string& place : {std::string("a ~.b"), longName, std::string("x-00000000")}) {
    Displaced found;
    for (const std::string& temporary : {own, elsewhere, gone}) {
      const std::string name = displacedName(temporary, {judged, fresh, place});
      EXPECT_TRUE(isTemporaryName(name) && !isAbandoned(name) && name.size() <= 143) << name;
      EXPECT_EQ(readDisplaced(name, found), temporary == gone) << name;
    }
    EXPECT_TRUE(found.judged.sameContent(judged) && found.fresh.sameContent(fresh));
    EXPECT_TRUE(found.place == place ||
                (place.size() > 60 && found.place.substr(found.place.size() - 8) == "\xC3\xA4.kelta"))
        << found.place;
    std::wstring wide;
    EXPECT_TRUE(wideFromUtf8(found.place, wide)) << "cut within a character";
  }
  Displaced none;
  for (const char* end : {"", "~", "~1.2~x", "~1.2~3~x", "~1.2~3.4", "~1.2~g.4~x"})
    EXPECT_FALSE(readDisplaced(gone + end, none)) << end;
  forgetTemporaryName(own);
  EXPECT_TRUE(isAbandoned(own));
}

}  // namespace
