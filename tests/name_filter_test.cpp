// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "support/Content.h"
#include "support/System.h"
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
  test::writeFile(folder / "plain.txt", "x");
  EXPECT_FALSE(isNeverSynchronised(folder / "plain.txt"));
  std::ofstream(test::standard(folder / "two\nlines")) << "x";  // Windows does not have such names
  EXPECT_EQ(isNeverSynchronised(folder / "two\nlines"), fs::exists(folder / "two\nlines"));
  for (const char* target : {"plain.txt", "nowhere"})
    if (test::makeLink(folder / target, folder / "link")) {
      EXPECT_TRUE(isNeverSynchronised(folder / "link")) << target;
      fs::remove(folder / "link");
    }
  // A deletion must be seen, whatever the name.
  EXPECT_FALSE(isNeverSynchronised(folder / "desktop.ini"));

  const std::size_t room = kMaxPathCharacters - folder.wide("x").size() + 1;
  const fs::path longest = folder / std::string(room, 'a');
  test::writeFile(longest, "x");
  test::writeFile(folder / std::string(room + 1, 'a'), "x");
  ASSERT_EQ(platform::wideOf(longest).size(), kMaxPathCharacters);
  EXPECT_FALSE(isNeverSynchronised(longest));
  EXPECT_TRUE(isNeverSynchronised(folder / std::string(room + 1, 'a')));
  // The limit counts characters, not bytes.
  std::string umlauts;
  for (int i = 0; i < 100; ++i) umlauts += "\xC3\xA4";
  const fs::path accented = folder / umlauts / std::string(room - 101, 'b');
  fs::create_directory(accented.parent_path());
  test::writeFile(accented, "x");
  EXPECT_FALSE(isNeverSynchronised(accented));
}

}  // namespace
