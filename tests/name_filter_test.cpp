// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <boost/filesystem/fstream.hpp>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "support/TempFolder.h"

using namespace Kelta;
namespace fs = boost::filesystem;

namespace {

TEST(NameFilter, JudgesNames) {
  const wchar_t* const refused[] = {L"~$report.docx",
                                    L".~lock.notes.odt#",
                                    L"a.odt#",
                                    L"b.PPT.xlsx#",
                                    L"Icon\r",
                                    L".quillon",
                                    L".KELTA",
                                    L"sid",
                                    L"SK",
                                    L".Sid",
                                    L".sk",
                                    L".rid",
                                    L".RID",
                                    L".kelta.lock",
                                    L".kelta.akf",
                                    L".kelta.x1.akf",
                                    L".DS_Store",
                                    L"desktop.ini",
                                    L"README-Kelta.txt",
                                    L".dropbox",
                                    L".dropbox.attr",
                                    L".dropbox.cache"};
  for (const wchar_t* name : refused) EXPECT_TRUE(isReservedName(name, false)) << platform::utf8(std::wstring(name));
  const wchar_t* const welcome[] = {L"Icon",        L"a.odt",      L"a.txt#",           L"side",
                                    L".kelta.akf2", L"x.kelta",    L".ds_store",        L"Desktop.ini",
                                    L".dropboxed",  L"my~$a.docx", L"readme-kelta.txt", L"kelta.akf"};
  for (const wchar_t* name : welcome) EXPECT_FALSE(isReservedName(name, false)) << platform::utf8(std::wstring(name));
  // A folder is no lock file, but our markers' names are taken for folders as well.
  EXPECT_FALSE(isReservedName(L"~$plans", true));
  EXPECT_FALSE(isReservedName(L"old.doc#", true));
  EXPECT_TRUE(isReservedName(L".rid", true));
}

TEST(NameFilter, LooksAtTheEntryBehindTheName) {
  const test::TempFolder folder;
  fs::ofstream(folder / "plain.txt") << "x";
  fs::ofstream(folder / "two\nlines") << "x";
  fs::create_symlink(folder / "plain.txt", folder / "link.txt");
  fs::create_symlink(folder / "nowhere", folder / "dangling");
  EXPECT_FALSE(isNeverSynchronised(folder / "plain.txt"));
  EXPECT_TRUE(isNeverSynchronised(folder / "two\nlines"));
  EXPECT_TRUE(isNeverSynchronised(folder / "link.txt"));
  EXPECT_TRUE(isNeverSynchronised(folder / "dangling"));
  // A deletion must be seen, whatever the name.
  EXPECT_FALSE(isNeverSynchronised(folder / "desktop.ini"));

  const std::size_t room = kMaxPathCharacters - folder.wide("x").size() + 1;
  const fs::path longest = folder / std::string(room, 'a');
  fs::ofstream(longest) << "x";
  fs::ofstream(folder / std::string(room + 1, 'a')) << "x";
  ASSERT_EQ(platform::wideOf(longest).size(), kMaxPathCharacters);
  EXPECT_FALSE(isNeverSynchronised(longest));
  EXPECT_TRUE(isNeverSynchronised(folder / std::string(room + 1, 'a')));
  // The limit counts characters, not bytes.
  std::string umlauts;
  for (int i = 0; i < 100; ++i) umlauts += "\xC3\xA4";
  const fs::path accented = folder / umlauts / std::string(room - 101, 'b');
  fs::create_directory(accented.parent_path());
  fs::ofstream(accented) << "x";
  EXPECT_FALSE(isNeverSynchronised(accented));
}

}  // namespace
