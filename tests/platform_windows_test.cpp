// SPDX-License-Identifier: Apache-2.0
// What only Windows asks of the platform layer and of those above it.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "base/GenericPath.h"
#include "platform/AtomicFile.h"
#include "platform/Console.h"
#include "platform/Folders.h"
#include "support/TwoDevices.h"
#include "support/faults_windows.h"

namespace Kelta {
namespace test {
namespace {

using platform::callPath;
using platform::Kind;

constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

DWORD marksOf(const fs::path& path) { return GetFileAttributesW(callPath(path).c_str()) & kMarks; }
void mark(const fs::path& path, DWORD marks) { ASSERT_TRUE(SetFileAttributesW(callPath(path).c_str(), marks)); }

/// Files and folders of any path.
void putLong(const fs::path& file, const std::string& content, std::int64_t time) {
  boost::system::error_code error;
  platform::createFolders(file.parent_path(), error);
  ASSERT_FALSE(error) << error.message();
  platform::writeWholeFile(file, content);
  ASSERT_TRUE(platform::setLastWriteTime(file, (kEpoch + time) * 1000000000));
}

std::string readLong(const fs::path& path) {
  platform::File file(path, platform::File::Mode::read);
  std::string text(static_cast<std::size_t>(file.size()), '\0');
  text.resize(file.read(&text[0], text.size()));
  return text;
}

/// "path/ path=content", for trees of any depth and any names; markers left out.
std::set<std::string> exactTree(const fs::path& root, const std::string& below = "") {
  std::set<std::string> tree;
  std::vector<fs::path> entries;
  boost::system::error_code error;
  platform::listFolder(root, entries, error);
  EXPECT_FALSE(error) << root << error.message();
  for (const fs::path& entry : entries) {
    const std::string name = platform::utf8(entry.filename());
    if (name == ".rid" || name == ".kelta") continue;
    const bool folder = platform::stampOf(entry).kind == Kind::folder;
    tree.insert(below + name + (folder ? "/" : "=" + readLong(entry)));
    if (folder) tree.merge(exactTree(entry, below + name + "/"));
  }
  return tree;
}

std::ptrdiff_t quarantined(Device& device) {
  const std::wstring list = device.handler().getQuarantineAsJSON();
  return std::count(list.begin(), list.end(), L'{') - 1;
}

class Windows : public TwoDevices {
protected:
  ~Windows() override {
    boost::system::error_code ignored;
    platform::removeTree(folder.path(), ignored);
  }
};

TEST_F(Windows, PathsReachTheSystemWhole) {
  const std::pair<const wchar_t*, const wchar_t*> forms[] = {
      {L"C:/a/./b//../c", L"\\\\?\\C:\\a\\c"},
      {L"C:\\", L"\\\\?\\C:\\"},
      {L"C:/a./NUL/b ", L"\\\\?\\C:\\a.\\NUL\\b "},
      {L"C:/../..", L"\\\\?\\C:\\"},
      {L"//server/share/a/../b", L"\\\\?\\UNC\\server\\share\\b"},
      {L"\\\\server\\share", L"\\\\?\\UNC\\server\\share\\"},
      {L"//?/C:/a", L"\\\\?\\C:\\a"},
  };
  for (const auto& form : forms) EXPECT_EQ(callPath(form.first).native(), form.second);
  const std::wstring here = fs::current_path().native();
  EXPECT_EQ(callPath(L"x/y").native(), callPath(here + L"\\x\\y").native());
  EXPECT_EQ(callPath(here.substr(0, 2) + L"x").native(), callPath(here + L"\\x").native());
  EXPECT_EQ(callPath(L"/x").native(), L"\\\\?\\" + here.substr(0, 2) + L"\\x");

  EXPECT_EQ(folderForm(L"C:\\") + folderForm(L"C:\\a\\\\"), L"C:/C:/a");
  EXPECT_EQ(folderForm(L"\\\\server\\share\\"), L"//server/share");
  EXPECT_EQ(parentOf(L"C:/a") + parentOf(L"//server/share/a"), L"C:///server/share");
  EXPECT_EQ(parentOf(L"a/b") + parentOf(L"a"), L"a");

  EXPECT_TRUE(platform::samePath(L"C:/\u00C4\u03A9\u0416", L"c:/\u00E4\u03C9\u0436"));
  EXPECT_FALSE(platform::samePath(L"stra\u00DFe", L"strasse"));
  EXPECT_FALSE(platform::samePath(L"\u00E9", L"e\u0301"));
  EXPECT_TRUE(platform::liesBelow(L"C:/\u00C4/x", L"c:/\u00E4"));
  EXPECT_FALSE(platform::liesBelow(L"C:/\u00C4x", L"c:/\u00E4"));
  EXPECT_TRUE(platform::liesBelow(L"C:/x", L"c:/"));
}

// Two devices whose Insides have paths of one length, and one whose Inside has longer ones.
TEST_F(Windows, LongPathsAndRareCharactersTravelExactly) {
  const StrictSystem strict;
  Device one(folder / "a device", folder / "o");
  Device two(folder / "b device", folder / "o");
  Device other(folder / "c device!", folder / "o");
  const RecycleBin bin(folder.path());
  const fs::path deep = fs::path(std::string(60, 'd')) / std::string(60, 'e');
  const auto entryOf = [&](std::size_t length, const wchar_t* kind) {
    const fs::path start = one.inside() / deep / kind;
    return start.native() + std::wstring(length - start.native().size(), L'x');
  };
  const auto putBoth = [&](std::size_t length) {
    putLong(entryOf(length, L"file"), std::to_string(length), 1);
    boost::system::error_code error;
    EXPECT_TRUE(platform::createFolder(entryOf(length, L"folder"), error)) << length;
  };
  for (const std::size_t length : {247U, 248U, 259U, 260U}) putBoth(length);
  putLong(fs::path(entryOf(247, L"folder")) / "inner", "inner", 1);
  const char* const names[] = {"\xF0\x9F\x98\x80.txt", "e\xCC\x81", "\xC3\xA9", "\xC3\x84.\xE6\xBC\xA2 .x"};
  for (const char* name : names) putLong(one.inside() / pathFrom(name), name, 2);
  const std::set<std::string> expected = exactTree(one.inside());
  putBoth(261);

  one.cycle();
  two.cycle();
  EXPECT_EQ(exactTree(two.inside()), expected);
  EXPECT_EQ(one.cycle() + two.cycle(), "");
  EXPECT_EQ(quarantined(one), 2);
  EXPECT_EQ(quarantined(two), 0);

  other.cycle();
  EXPECT_EQ(exactTree(other.inside()).size(), expected.size() - 2) << "those of 260 have 261 characters there";
  EXPECT_EQ(quarantined(other), 2);

  // Back the other way: a change, and the deletion of whatever is that long.
  const auto onTwo = [&](std::size_t length, const wchar_t* kind) {
    return two.inside() / fs::path(entryOf(length, kind)).lexically_relative(one.inside());
  };
  putLong(onTwo(260, L"file"), "newer", 9);
  two.cycle();
  one.cycle();
  EXPECT_EQ(readLong(entryOf(260, L"file")), "newer");
  for (const std::size_t length : {259U, 260U}) {
    EXPECT_TRUE(platform::removeEntry(onTwo(length, L"file")));
    boost::system::error_code error;
    platform::removeTree(onTwo(length, L"folder"), error);
  }
  two.cycle();
  one.cycle();
  for (const std::size_t length : {259U, 260U})
    for (const wchar_t* kind : {L"file", L"folder"})
      EXPECT_EQ(platform::stampOf(entryOf(length, kind)).kind, Kind::missing) << length;
  EXPECT_EQ(platform::stampOf(entryOf(261, L"file")).kind, Kind::file);
  EXPECT_TRUE(bin.holds("259"));
  EXPECT_TRUE(bin.holds("newer"));
  EXPECT_EQ(one.cycle() + two.cycle(), "");
}

TEST_F(Windows, NamesThatTheSystemWouldChangeAreNeverWritten) {
  for (const wchar_t* name :
       {L"a.", L"b ", L"CON", L"con.txt", L"NUL .x.y", L"COM1", L"lpt9.log", L"COM\u00B2", L"CONIN$", L"x:y",
        L"<",  L"a?", L"*",   L"a|b",     L"\"",       L"a\\b", L"a/b",      L"\x1F",      L"..",     L""})
    EXPECT_FALSE(platform::canStandAsName(name)) << name;
  for (const wchar_t* name : {L"CONS", L"COM0", L"COM10", L".a", L"a.b", L" a", L"NULL.txt", L"\u00E9"})
    EXPECT_TRUE(platform::canStandAsName(name)) << name;

  put(b.inside() / "a", "own a", 1);
  put(a.inside() / "good", "good", 1);
  b.cycle();
  a.cycle();
  const std::vector<std::wstring> names = {L"a..kelta", L"b .kelta", L"NUL.txt.kelta", L"com1.kelta", L"AUX",
                                           L"dir.",     L"d "};
  for (const fs::path name : names)
    putLong(a.outside() / (name.extension() == ".kelta" ? name : name / "good.kelta"), readLong(out("good.kelta")), 5);
  const auto outside = exactTree(a.outside());
  b.cycle();
  EXPECT_EQ(exactTree(b.inside()), (std::set<std::string>{"a=own a", "good=good"}));
  EXPECT_EQ(exactTree(a.outside()), outside);
  const std::wstring list = b.handler().getQuarantineAsJSON();
  EXPECT_EQ(quarantined(b), static_cast<std::ptrdiff_t>(names.size())) << platform::utf8(list);
  for (const std::wstring& name : names) EXPECT_NE(list.find(L'/' + name + L'"'), std::wstring::npos) << name;
  EXPECT_EQ(b.cycle(), "");
  EXPECT_FALSE(b.handler().copyFile(out("good.kelta"), b.inside() / "a.").first);
  EXPECT_FALSE(b.handler().copyDir(out("dir."), b.inside() / "dir."));

  // The same on the Inside, where only programs that know the prefix make such names.
  putLong(b.inside() / "a.", "other", 5);
  EXPECT_EQ(b.cycle(), "");
  platform::recycle(b.inside() / "a.");
  EXPECT_EQ(contentOf(b.inside() / "a"), "own a");
}

// The short name that the system gives a renamed file may be the one that it had.
TEST_F(Windows, AShortNameIsNotTakenForTheFileThatItLeadsTo) {
  const fs::path renamed = b.inside() / "a rather long name.text";
  put(renamed, "text", 1);
  std::wstring brief(MAX_PATH, L'\0');
  brief.resize(GetShortPathNameW(renamed.c_str(), &brief[0], MAX_PATH));
  const fs::path name = fs::path(brief).filename();
  if (name == renamed.filename()) GTEST_SKIP() << "no short names here";
  EXPECT_TRUE(platform::hasOtherName(b.inside() / name));
  EXPECT_FALSE(platform::hasOtherName(renamed));
  fs::remove(renamed);
  put(b.inside() / name, "text", 1);
  b.cycle();
  a.cycle();
  fs::rename(b.inside() / name, renamed);
  for (int round = 0; round < 3; ++round) {
    b.cycle();
    a.cycle();
    if (!platform::hasOtherName(a.inside() / name)) fs::remove(a.inside() / name);  // should it still be there
  }
  EXPECT_EQ(a.tree(), "a rather long name.text=text@1");
  EXPECT_EQ(b.tree(), a.tree());
}

TEST_F(Windows, AnotherCaseIsCarriedOver) {
  put(b.inside() / "Name", "text", 1);
  put(b.inside() / "Dir/f", "text", 1);
  b.cycle();
  for (const char* name : {"name", "dir"}) {
    std::string former = name;
    former[0] = static_cast<char>(former[0] - 'a' + 'A');
    fs::rename(b.inside() / former, b.inside() / "between");
    fs::rename(b.inside() / "between", b.inside() / name);
  }
  b.cycle();
  b.cycle();
  put(b.inside() / "name", "newer", 9);
  put(b.inside() / "dir/f", "newer", 9);
  b.cycle();
  EXPECT_EQ(b.cycle(), "");
  a.cycle();
  EXPECT_EQ(b.tree(), "dir/ dir/f=newer@9 name=newer@9");
  EXPECT_EQ(a.tree(), "dir/ dir/f=newer@9 name=newer@9");
}

TEST_F(Windows, ReadOnlyAndHiddenFilesAreReplacedAndRemoved) {
  const StrictSystem strict;
  const RecycleBin bin(folder.path());
  put(a.inside() / "dir/f", "first", 1);
  a.cycle();
  b.cycle();
  const fs::path file = b.inside() / "dir/f";
  const fs::path archive = out("dir/f.kelta");
  mark(file, kMarks);
  mark(archive, kMarks);
  put(a.inside() / "dir/f", "second", 5);
  EXPECT_EQ(a.cycle(), "encrypt:f.kelta");
  EXPECT_EQ(b.cycle(), "decrypt:f");
  EXPECT_EQ(contentOf(file), "second");
  EXPECT_EQ(marksOf(file), kMarks);
  EXPECT_EQ(marksOf(archive), kMarks);
  EXPECT_EQ(a.leftovers() + b.leftovers(), "");

  {
    platform::File held(file, platform::File::Mode::read);
    const HANDLE writer =
        CreateFileW(callPath(file).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    platform::writeWholeFile(folder / "newer", "third");
    EXPECT_THROW(platform::replaceFile(folder / "newer", file), fs::filesystem_error);
    CloseHandle(writer);
  }
  EXPECT_EQ(contentOf(file), "second");
  EXPECT_EQ(marksOf(file), kMarks) << "as it was";

  mark(b.inside() / "dir", FILE_ATTRIBUTE_READONLY);
  mark(out("dir"), FILE_ATTRIBUTE_READONLY);
  fs::remove_all(a.inside() / "dir");
  EXPECT_EQ(a.cycle(), "delete:f.kelta delete:dir");
  EXPECT_EQ(b.cycle(), "delete:f delete:dir");
  EXPECT_TRUE(bin.holds("second"));
  EXPECT_EQ(a.tree() + b.tree() + treeOf(a.outside()), "");
  fs::create_directory(folder / "look");
  mark(folder / "look", FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(platform::recycle(folder / "look"));
}

// What the user wants deleted for good is not entrusted to the bin.
TEST_F(Windows, ABinThatKeepsNothingIsNone) {
  put(folder / "x", "loser", 1);
  wchar_t id[64] = L"";
  ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(folder.path().root_path().make_preferred().c_str(), id, 64));
  const std::wstring key =
      L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\BitBucket\\Volume\\" + std::wstring(id + 10, 38);
  HKEY own = nullptr;  // in the place of the user's
  const wchar_t* const ownName = L"Software\\kelsync test";
  ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, ownName, &own), ERROR_SUCCESS);
  for (const wchar_t* name : {L"NukeOnDelete", L"MaxCapacity"}) {
    const DWORD value = name[0] == L'N' ? 1 : 0;
    EXPECT_EQ(RegSetKeyValueW(own, key.c_str(), name, REG_DWORD, &value, sizeof(value)), ERROR_SUCCESS);
    RegOverridePredefKey(HKEY_CURRENT_USER, own);
    EXPECT_EQ(platform::moveToRecycleBin(folder / "x"), platform::Recycled::noBin);
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    RegDeleteKeyValueW(own, key.c_str(), name);
    EXPECT_EQ(contentOf(folder / "x"), "loser");
  }
  RegCloseKey(own);
  RegDeleteTreeW(HKEY_CURRENT_USER, ownName);
  EXPECT_EQ(platform::moveToRecycleBin(folder / "x"), platform::Recycled::yes);
}

// The system knows no exchange: what was replaced stands beside its place for a moment, where any scan finds it.
TEST_F(Windows, AnExchangeKeepsWhatItReplacesAtEveryStep) {
  const fs::path fresh = folder / "fresh";
  const fs::path target = folder / "x.tar.gz";
  put(fresh, "new", 7);
  put(target, "old", 1);
  mark(target, kMarks);
  EXPECT_TRUE(platform::exchangeFiles(fresh, target));
  EXPECT_EQ(contentOf(target) + contentOf(fresh), "newold");
  EXPECT_EQ(marksOf(target), 0U);
  EXPECT_EQ(marksOf(fresh), kMarks);
  EXPECT_EQ(platform::stampOf(target).seconds(), kEpoch + 7);
  EXPECT_EQ(platform::stampOf(fresh).seconds(), kEpoch + 1);
  mark(fresh, FILE_ATTRIBUTE_NORMAL);
  {
    const ClosedPlace closed(fresh);
    EXPECT_THROW(platform::exchangeFiles(fresh, target), fs::filesystem_error);
  }
  const std::set<std::string> left = exactTree(folder.path());
  EXPECT_EQ(left.count("x.tar.gz=old"), 1U);
  const auto beside = left.lower_bound("x (replaced ");
  ASSERT_NE(beside, left.end());
  EXPECT_EQ(beside->substr(beside->size() - 12), ").tar.gz=new");
}

TEST_F(Windows, AFolderThatIsHeldStaysWhereItIs) {
  put(folder / "root/in/deep/f", "text", 1);
  {
    const platform::OpenFolder root(folder / "root");
    const platform::OpenFolder deep = root.folder("in").folder("deep");
    for (const char* held : {"root", "root/in", "root/in/deep"})
      EXPECT_FALSE(MoveFileExW(callPath(folder / held).c_str(), callPath(folder / "away").c_str(), 0)) << held;
    EXPECT_THROW(root.folder("IN"), fs::filesystem_error);
    const ReparsePoint junction(folder / "root/in", IO_REPARSE_TAG_MOUNT_POINT);
    EXPECT_THROW(root.folder("in"), fs::filesystem_error);
  }
  EXPECT_TRUE(MoveFileExW(callPath(folder / "root/in").c_str(), callPath(folder / "away").c_str(), 0));
}

TEST_F(Windows, AJunctionIsNotFollowedButAFolderKeptElsewhereIs) {
  constexpr unsigned long kept = 0x9000001A;  // by a cloud's client
  put(a.inside() / "dir/f", "text", 1);
  {
    const ReparsePoint junction(a.inside() / "dir", IO_REPARSE_TAG_MOUNT_POINT);
    EXPECT_EQ(platform::stampOf(a.inside() / "dir").kind, Kind::symlink);
    EXPECT_EQ(a.cycle(), "");
  }
  {
    const ReparsePoint cloud(a.inside() / "dir", kept);
    EXPECT_EQ(a.cycle(), "folder:dir encrypt:f.kelta");
  }
  b.cycle();
  fs::remove_all(b.inside() / "dir");
  put(b.inside() / "g", "text", 1);
  b.cycle();
  const ReparsePoint junction(a.inside() / "dir", IO_REPARSE_TAG_MOUNT_POINT);
  a.cycle();
  EXPECT_EQ(contentOf(a.inside() / "dir/f"), "text") << "deleted through a junction";
  EXPECT_EQ(contentOf(a.inside() / "g"), "text");
}

TEST_F(Windows, MarkersAreHiddenAndStaySoWhenTheyAreWrittenAgain) {
  a.cycle();
  const fs::path marker = a.inside() / ".rid";
  EXPECT_EQ(marksOf(marker) | marksOf(out(".kelta")), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
  platform::writeWholeFile(marker, "damaged");
  EXPECT_EQ(marksOf(marker), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
  put(a.inside() / "f", "text", 1);
  a.cycle();
  EXPECT_EQ(contentOf(marker).substr(0, 1), "+");
}

TEST_F(Windows, WithoutAConsoleThereIsNoPrompt) {
  FreeConsole();
  platform::SecretConsole console;
  EXPECT_FALSE(console.available());
  EXPECT_EQ(console.readKey(), -1);
  AttachConsole(ATTACH_PARENT_PROCESS);
}

TEST_F(Windows, NarrowTextIsInTheActiveCodePage) {
  char narrow[8] = {};
  BOOL replaced = FALSE;
  const std::wstring accented = L"\u00E9";
  const bool utf8Page = GetACP() == CP_UTF8;
  WideCharToMultiByte(CP_ACP, 0, accented.c_str(), 1, narrow, 7, nullptr, utf8Page ? nullptr : &replaced);
  std::wstring wide;
  ASSERT_TRUE(platform::wideFromNarrow(narrow, wide));
  EXPECT_EQ(wide, replaced ? L"?" : accented);
  EXPECT_TRUE(platform::wideFromNarrow("", wide));
  EXPECT_EQ(wide, L"");
}

}  // namespace
}  // namespace test
}  // namespace Kelta
