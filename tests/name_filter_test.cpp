// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "platform/Text.h"

using namespace Kelta;

namespace {

TEST(NameFilter, JudgesNames) {
  for (const wchar_t* name :
       {L"~$report.docx", L".~lock.notes.odt#", L"a.odt#", L"b.PPT.xlsx#", L"Icon\r", L".DS_Store", L"desktop.ini",
        L"README-Kelta.txt", L".dropbox", L".dropbox.attr", L".dropbox.cache"})
    EXPECT_TRUE(isReservedName(name, false)) << platform::utf8(std::wstring(name));
  for (const wchar_t* name : {L".quillon", L".KELTA", L"sid", L"SK", L".Sid", L".sk", L".rid", L".RID", L".kelta.lock",
                              L".kelta.akf", L".kelta.x1.akf"})
    EXPECT_TRUE(isReservedName(name, false)) << platform::utf8(std::wstring(name));
  for (const wchar_t* name : {L"Icon", L"a.odt", L"a.txt#", L"side", L".kelta.akf2", L"x.kelta", L".ds_store",
                              L"Desktop.ini", L".dropboxed", L"my~$a.docx", L"readme-kelta.txt", L"kelta.akf"})
    EXPECT_FALSE(isReservedName(name, false)) << platform::utf8(std::wstring(name));
  // A folder is no lock file, but our markers' names are taken for folders as well.
  EXPECT_FALSE(isReservedName(L"~$plans", true));
  EXPECT_FALSE(isReservedName(L"old.doc#", true));
  EXPECT_TRUE(isReservedName(L".rid", true));
}

}  // namespace
