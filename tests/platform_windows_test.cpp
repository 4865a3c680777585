// SPDX-License-Identifier: Apache-2.0
// What only Windows asks of the platform layer and of those above it.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "CryptoHelper/CryptoHelper.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveEngine.h"
#include "base/GenericPath.h"
#include "platform/AtomicFile.h"
#include "platform/Console.h"
#include "platform/Folders.h"
#include "platform/Random.h"
#include "support/Device.h"
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

class Windows : public ::testing::Test {
protected:
  ~Windows() override {
    boost::system::error_code ignored;
    platform::removeTree(folder.path(), ignored);
  }
  TempFolder folder;
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

  EXPECT_EQ(folderForm(L"C:\\"), L"C:/");
  EXPECT_EQ(folderForm(L"C:\\a\\\\"), L"C:/a");
  EXPECT_EQ(folderForm(L"\\\\server\\share\\"), L"//server/share");
  EXPECT_EQ(parentOf(L"C:/a"), L"C:/");
  EXPECT_EQ(parentOf(L"//server/share/a"), L"//server/share");
  EXPECT_EQ(parentOf(L"a/b"), L"a");
  EXPECT_EQ(parentOf(L"a"), L"");

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
  Device a(folder / "a device", folder / "o");
  Device b(folder / "b device", folder / "o");
  Device c(folder / "c device!", folder / "o");
  const RecycleBin bin(folder.path());
  const fs::path deep = fs::path(std::string(60, 'd')) / std::string(60, 'e');
  const auto entryOf = [&](std::size_t length, const wchar_t* kind) {
    const fs::path start = a.inside() / deep / kind;
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
  for (const char* name : names) putLong(a.inside() / pathFrom(name), name, 2);
  const std::set<std::string> expected = exactTree(a.inside());
  putBoth(261);

  a.cycle();
  b.cycle();
  EXPECT_EQ(exactTree(b.inside()), expected);
  EXPECT_EQ(a.cycle() + b.cycle(), "");
  const auto quarantined = [](Device& device) {
    const std::wstring list = device.handler().getQuarantineAsJSON();
    return std::count(list.begin(), list.end(), L'{') - 1;
  };
  EXPECT_EQ(quarantined(a), 2);
  EXPECT_EQ(quarantined(b), 0);

  c.cycle();
  EXPECT_EQ(exactTree(c.inside()).size(), expected.size() - 2) << "those of 260 have 261 characters there";
  EXPECT_EQ(quarantined(c), 2);

  // Back the other way: a change, and the deletion of whatever is that long.
  const auto onB = [&](std::size_t length, const wchar_t* kind) {
    return b.inside() / fs::path(entryOf(length, kind)).lexically_relative(a.inside());
  };
  putLong(onB(260, L"file"), "newer", 9);
  b.cycle();
  a.cycle();
  EXPECT_EQ(readLong(entryOf(260, L"file")), "newer");
  for (const std::size_t length : {259U, 260U}) {
    EXPECT_TRUE(platform::removeEntry(onB(length, L"file")));
    boost::system::error_code error;
    platform::removeTree(onB(length, L"folder"), error);
  }
  b.cycle();
  a.cycle();
  for (const std::size_t length : {259U, 260U})
    for (const wchar_t* kind : {L"file", L"folder"})
      EXPECT_EQ(platform::stampOf(entryOf(length, kind)).kind, Kind::missing) << length;
  EXPECT_EQ(platform::stampOf(entryOf(261, L"file")).kind, Kind::file);
  EXPECT_TRUE(bin.holds("259"));
  EXPECT_TRUE(bin.holds("newer"));
  EXPECT_EQ(a.cycle() + b.cycle(), "");
}

TEST_F(Windows, NamesThatTheSystemWouldChangeAreNeverWritten) {
  for (const wchar_t* name :
       {L"a.", L"b ", L"CON", L"con.txt", L"NUL .x.y", L"COM1", L"lpt9.log", L"COM\u00B2", L"CONIN$", L"x:y",
        L"<",  L"a?", L"*",   L"a|b",     L"\"",       L"a\\b", L"a/b",      L"\x1F",      L"..",     L""})
    EXPECT_FALSE(platform::canStandAsName(name)) << name;
  for (const wchar_t* name : {L"CONS", L"COM0", L"COM10", L".a", L"a.b", L" a", L"NULL.txt", L"\u00E9"})
    EXPECT_TRUE(platform::canStandAsName(name)) << name;

  Device a(folder / "a", folder / "o");
  Device b(folder / "b", folder / "o");
  put(b.inside() / "a", "own a", 1);
  put(a.inside() / "good", "good", 1);
  b.cycle();
  a.cycle();
  const std::vector<std::wstring> names = {L"a..kelta", L"b .kelta", L"NUL.txt.kelta", L"com1.kelta", L"AUX",
                                           L"dir.",     L"d "};
  for (const std::wstring& name : names) {
    const bool isFolder = platform::pathOf(name).extension() != ".kelta";
    const fs::path archive =
        isFolder ? folder / "o" / platform::pathOf(name) / "good.kelta" : folder / "o" / platform::pathOf(name);
    putLong(archive, readLong(folder / "o" / "good.kelta"), 5);
  }
  const auto outside = exactTree(folder / "o");
  b.cycle();
  EXPECT_EQ(exactTree(b.inside()), (std::set<std::string>{"a=own a", "good=good"}));
  EXPECT_EQ(exactTree(folder / "o"), outside);
  const std::wstring list = b.handler().getQuarantineAsJSON();
  EXPECT_EQ(std::count(list.begin(), list.end(), L'{'), static_cast<std::ptrdiff_t>(names.size()) + 1)
      << platform::utf8(list);
  for (const std::wstring& name : names) EXPECT_NE(list.find(L'/' + name + L'"'), std::wstring::npos) << name;
  EXPECT_EQ(b.cycle(), "");
  EXPECT_FALSE(b.handler().copyFile(folder / "o" / "good.kelta", b.inside() / "a.").first);
  EXPECT_FALSE(b.handler().copyDir(folder / "o" / "dir.", b.inside() / "dir."));

  // The same on the Inside, where only programs that know the prefix make such names.
  putLong(b.inside() / "a.", "other", 5);
  EXPECT_EQ(b.cycle(), "");
  platform::recycle(b.inside() / "a.");
  EXPECT_EQ(contentOf(b.inside() / "a"), "own a");
}

// The short name that the system gives a renamed file may be the one that it had.
TEST_F(Windows, AShortNameIsNotTakenForTheFileThatItLeadsTo) {
  Device a(folder / "a", folder / "o");
  Device b(folder / "b", folder / "o");
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
  Device a(folder / "a", folder / "o");
  Device b(folder / "b", folder / "o");
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

TEST_F(Windows, AnArchivesEntriesKeepTheirNamesOrAreRefused) {
  put(folder / "source", "text", 1);
  for (const char* name : {"a?b", "x/a|b", "q\"q", "s*/f", "<f>"}) {
    zip::ArchiveEngine engine;
    engine.addFile(folder / "source", name, zip::EntryOptions());
    engine.setWriteFlags(zip::ArchiveEngine::kReplaceTarget);
    engine.writeArchive(folder / "archive");
    try {
      archive::unpack(folder / "archive", folder / "target", "");
      ADD_FAILURE() << name;
    } catch (const zip::ArchiveError& error) {
      EXPECT_EQ(error.failure(), zip::ArchiveFailure::unsafeName) << name;
    }
  }
  const auto unpacked = exactTree(folder / "target");
  EXPECT_TRUE(std::all_of(unpacked.begin(), unpacked.end(), [](const std::string& entry) { return entry == "x/"; }));
}

TEST_F(Windows, ReadOnlyAndHiddenFilesAreReplacedAndRemoved) {
  const StrictSystem strict;
  Device a(folder / "a", folder / "o");
  Device b(folder / "b", folder / "o");
  const RecycleBin bin(folder.path());
  put(a.inside() / "dir/f", "first", 1);
  a.cycle();
  b.cycle();
  const fs::path file = b.inside() / "dir/f";
  const fs::path archive = folder / "o" / "dir/f.kelta";
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
  mark(folder / "o" / "dir", FILE_ATTRIBUTE_READONLY);
  fs::remove_all(a.inside() / "dir");
  EXPECT_EQ(a.cycle(), "delete:f.kelta delete:dir");
  EXPECT_EQ(b.cycle(), "delete:f delete:dir");
  EXPECT_TRUE(bin.holds("second"));
  EXPECT_EQ(a.tree() + b.tree() + treeOf(folder / "o"), "");
  fs::create_directory(folder / "look");
  mark(folder / "look", FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(platform::recycle(folder / "look"));
}

TEST_F(Windows, AJunctionIsNotFollowedButAFolderKeptElsewhereIs) {
  constexpr unsigned long kept = 0x9000001A;  // by a cloud's client
  Device a(folder / "a", folder / "o");
  Device b(folder / "b", folder / "o");
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
  Device a(folder / "a", folder / "o");
  a.cycle();
  const fs::path marker = a.inside() / ".rid";
  EXPECT_EQ(marksOf(marker) | marksOf(folder / "o" / ".kelta"), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
  platform::writeWholeFile(marker, "damaged");
  EXPECT_EQ(marksOf(marker), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
  put(a.inside() / "f", "text", 1);
  a.cycle();
  EXPECT_EQ(contentOf(marker).substr(0, 1), "+");
}

TEST_F(Windows, TheRootOfAVolumeCanBeAFolderOfThePair) {
  fs::create_directory(folder / "out");
  std::wstring drive = L"I:";
  while (drive[0] < L'Z' && GetDriveTypeW((drive + L"\\").c_str()) != DRIVE_NO_ROOT_DIR) ++drive[0];
  const auto undefine = [&] { return DefineDosDeviceW(DDD_REMOVE_DEFINITION, drive.c_str(), nullptr); };
  ASSERT_TRUE(DefineDosDeviceW(0, drive.c_str(), fs::path(folder / "out").make_preferred().c_str()));
  if (platform::stampOf(drive + L"/").kind != Kind::folder) {
    undefine();
    GTEST_SKIP() << "no drive can be made of a folder here";
  }
  Device a(folder / "a", drive + L"/");
  Device b(folder / "b", folder / "out");
  put(a.inside() / "x", "text", 1);
  put(a.inside() / "d/y", "text", 1);
  EXPECT_EQ(a.cycle(), "folder:d encrypt:y.kelta encrypt:x.kelta");
  b.cycle();
  EXPECT_EQ(b.tree(), "d/ d/y=text@1 x=text@1");
  fs::remove(b.inside() / "x");
  put(b.inside() / "z", "from b", 2);
  b.cycle();
  a.cycle();
  EXPECT_EQ(a.tree(), "d/ d/y=text@1 z=from b@2");
  fs::remove(a.inside() / "z");
  a.cycle();
  EXPECT_EQ(namesOf(folder / "out"), "d/ d/y.kelta");
  EXPECT_EQ(a.cycle(), "");
  EXPECT_TRUE(undefine());
}

TEST_F(Windows, TimesOfAnyCenturySurvive) {
  put(folder / "file", "text", 0);
  fs::create_directory(folder / "folder");
  for (const std::int64_t second : {-2000000000LL, -1LL, 1LL, 2147483648LL, 4294967296LL, 9000000000LL}) {
    const std::int64_t time = second * 1000000000 + 123456700;
    for (const char* name : {"file", "folder"}) {
      ASSERT_TRUE(platform::setLastWriteTime(folder / name, time)) << second;
      EXPECT_EQ(platform::stampOf(folder / name).nanoseconds, time) << name;
      EXPECT_EQ(platform::stampOf(folder / name).seconds(), second);
    }
  }
  EXPECT_FALSE(platform::setLastWriteTime(folder / "missing", 0));
  platform::File fresh(folder / "fresh", platform::File::Mode::createNew);
  fresh.write("text", 4);
  EXPECT_TRUE(fresh.setLastWriteTime(-1500000000));
  fresh.close();
  EXPECT_EQ(platform::stampOf(folder / "fresh").seconds(), -2);
}

TEST_F(Windows, ErrorsAreTheOnesThatTheEngineAsksFor) {
  put(folder / "file", "text", 0);
  const auto failureOf = [](auto operation) {
    try {
      operation();
    } catch (const fs::filesystem_error& error) {
      return error.code().default_error_condition();
    }
    return boost::system::error_condition();
  };
  namespace errc = boost::system::errc;
  EXPECT_EQ(failureOf([&] { platform::File(folder / "file", platform::File::Mode::createNew); }), errc::file_exists);
  EXPECT_EQ(failureOf([&] { platform::File(folder / "gone/x", platform::File::Mode::read); }),
            errc::no_such_file_or_directory);
  boost::system::error_code error;
  EXPECT_FALSE(platform::createFolder(folder / "file", error));
  EXPECT_EQ(platform::stampOf(folder / "file/below").kind, Kind::missing);
  const fs::path other = fs::path("Z:/dev/shm") / platform::temporaryName();  // on Wine, another volume
  if (fs::exists(other.parent_path())) {
    EXPECT_EQ(failureOf([&] { platform::replaceFile(folder / "file", other); }), errc::cross_device_link);
  }
  EXPECT_EQ(contentOf(folder / "file"), "text");
}

TEST_F(Windows, RandomBytesComeFromTheProviderOrElseFromTheGenerator) {
  const auto draw = [](bool& drawn) {
    unsigned char* buffer = nullptr;
    drawn = CryptoHelper().genRandomBuffer(&buffer, 32);
    const std::string bytes(reinterpret_cast<char*>(buffer), 32);
    std::free(buffer);
    return bytes;
  };
  bool drawn = false;
  EXPECT_TRUE(platform::StrongRandom().acquired());
  std::set<std::string> different{draw(drawn), std::string(32, '\0')};
  EXPECT_TRUE(drawn);
  const NoProvider gone;
  EXPECT_FALSE(platform::StrongRandom().acquired());
  for (int i = 0; i < 2; ++i) different.insert(draw(drawn));
  EXPECT_TRUE(drawn);
  EXPECT_EQ(different.size(), 4U);
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
