// SPDX-License-Identifier: Apache-2.0
// Encrypted file names: the mapping itself, and pairs whose archives have names of either form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>
#include <random>

#include "CryptoSyncCopyHandler/NameCipher.h"
#include "platform/Utf8.h"
#include "support/Device.h"
#include "support/HandlerFixture.h"

namespace Kelta {
namespace test {
namespace {

class Names : public HandlerTest {
protected:
  std::wstring inPath(const std::wstring& name) { return folder.wide("in/") + name; }
  std::wstring outPath(const std::wstring& name) { return folder.wide("out/") + name; }
  std::wstring stemOf(const std::wstring& name) {
    const std::wstring archive = handler.encryptFilename(name);
    return archive.substr(0, archive.size() - 6);
  }
  std::wstring randomName(std::size_t bytes) {
    static const char32_t kRanges[][2] = {{' ', '~'}, {0xA1, 0x24F}, {0x4E00, 0x9FFF}, {0x1F300, 0x1F64F}, {'.', '.'}};
    std::wstring name;
    for (;;) {
      const auto& range = kRanges[random() % 5];
      const char32_t c = range[0] + static_cast<char32_t>(random() % (range[1] - range[0] + 1));
      std::wstring longer = name;
      platform::putWide(longer, c == '/' || c == '\\' ? U'x' : c);
      if (platform::utf8(longer).size() > bytes) return platform::canStandAsName(name) ? name : L"x";
      name = longer;
    }
  }
  void expectRoundTrip(const std::wstring& name) {
    for (const bool on : {true, false}) {
      handler.setFNE(on);
      const std::wstring archive = handler.transformName(inPath(name));
      ASSERT_EQ(archive, handler.transformName(outPath(name)));
      ASSERT_EQ(archive.substr(archive.size() - 6), L".kelta");
      ASSERT_LE(archive.size(), kMaxNameBytes);
      ASSERT_EQ(handler.untransformName(outPath(archive)), name) << platform::utf8(archive);
      handler.setFNE(!on);
      ASSERT_EQ(handler.untransformName(outPath(archive)), name) << "read by a device of the other setting";
    }
  }

  std::mt19937 random{20240501};
};

TEST_F(Names, ComeBackExactly) {
  for (int i = 0; i < 3000; ++i) expectRoundTrip(randomName(1 + random() % 127));
  const std::wstring once = stemOf(L"x");
  for (const std::wstring& name :
       {std::wstring(L".kelta"), std::wstring(L"x.kelta"), std::wstring(L"x.kelta.kelta"), std::wstring(L" . "),
        std::wstring(L"..."), std::wstring(127, L'y'), std::wstring(43, L'A'), std::wstring(64, L'0'),
        std::wstring(64, L'_'), std::wstring(86, L'Q'), once, once + L".kelta", once + L" (1)", once + L"-copy",
        once + L"_conflict-20240501-101500", stemOf(once), std::wstring(once).replace(7, 1, L"@")})
    expectRoundTrip(name);
  handler.setFNE(false);
  EXPECT_EQ(handler.transformName(std::wstring(64, L'a')), std::wstring(64, L'a') + L".kelta") << "a digest is plain";
}

TEST_F(Names, AreTheSameOnEveryDeviceAndDifferForEveryFile) {
  EXPECT_EQ(handler.encryptFilename(L"a.txt"), L"IEBIcVYa1al9QoOniRhsMAX5Ng181GmrhPwH0tPNif4.kelta");
  const auto lower = [](std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    return text;
  };
  std::set<std::wstring> seen;
  for (int i = 0; i < 4096; ++i) {
    std::wstring name = L"twelve chars";
    for (int bit = 0; bit < 12; ++bit) {
      if ((i >> bit & 1) != 0) name[static_cast<std::size_t>(bit)] = L"TWELVE-CHARS"[bit];
    }
    EXPECT_TRUE(seen.insert(lower(handler.encryptFilename(name))).second);
  }
}

TEST_F(Names, ThatAreDamagedOrForeignAreNoNames) {
  const std::wstring stem = stemOf(L"report.txt");
  for (std::size_t at = 0; at < stem.size(); ++at) {
    for (const wchar_t flipped : {L'A', L'z', L'0', L'_', static_cast<wchar_t>(stem[at] ^ 1), L'@', L'\x00E9'}) {
      std::wstring damaged = stem;
      damaged[at] = flipped;
      if (damaged == stem || flipped == L'.') continue;
      EXPECT_EQ(handler.untransformName(outPath(damaged + L".kelta")), L"") << at << platform::utf8(damaged);
    }
  }
  handler.setAssetKey(L"asset-1", std::wstring(64, L'8'));
  EXPECT_EQ(handler.untransformName(stem + L".kelta"), L"");
  handler.setAssetKey(L"asset-2", kKey);
  EXPECT_EQ(handler.untransformName(stem + L".kelta"), L"report.txt") << "moved by hand from another asset";
  handler.clearAssets();
  handler.setFNE(true);
  EXPECT_EQ(handler.transformName(L"report.txt") + handler.untransformName(stem + L".kelta"), L"");
  EXPECT_EQ(handler.untransformName(L"report.txt.kelta"), L"report.txt");
}

class NamedPairs : public ::testing::Test {
protected:
  NamedPairs() : a(folder / "a", folder / "outside"), b(folder / "b", folder / "outside") {
    a.setNames(false);
    b.setNames(true);
  }
  void quiet() {
    std::string events;
    for (int round = 0; round < 6 && (round == 0 || !events.empty()); ++round) events = a.cycle() + b.cycle();
    EXPECT_EQ(events, "") << "never quiet";
    EXPECT_EQ(a.tree(), b.tree());
    EXPECT_EQ(a.leftovers() + b.leftovers(), "");
  }
  /// Plain names → archives' bytes; how many names are encrypted.
  std::map<std::string, std::string> archives(int& encrypted) {
    encrypted = 0;
    std::map<std::string, std::string> found;
    for (fs::recursive_directory_iterator it(a.outside()), end; it != end; ++it) {
      const std::string name = platform::utf8(it->path().filename());
      if (it->path().extension() != ".kelta" || name == ".kelta") continue;
      encrypted += plainForm(name) != name ? 1 : 0;
      const std::string key = platform::utf8(it->path().parent_path().filename()) + "/" + plainForm(name);
      EXPECT_TRUE(found.emplace(key, contentOf(it->path())).second) << "two archives of " << key;
    }
    return found;
  }
  static std::set<fs::path> files(const fs::path& outside) {
    std::set<fs::path> found;
    for (fs::recursive_directory_iterator it(outside), end; it != end; ++it) {
      if (fs::is_regular_file(it->path()) && it->path().filename() != ".kelta") found.insert(it->path());
    }
    return found;
  }
  /// An archive of `content`, made elsewhere, for the Outside.
  void bring(const std::string& name, bool encrypted, const std::string& content, int time) {
    const fs::path home = folder / ("maker" + std::to_string(++makers));
    Device maker(home, home / "out");
    maker.setNames(encrypted);
    put(maker.inside() / name, content, time);
    maker.cycle();
    const fs::path made = maker.archive(name + ".kelta");
    const fs::path place = a.outside() / made.filename();
    fs::rename(made, place);
  }

  TempFolder folder;
  Device a;
  Device b;
  int makers = 0;
};

TEST_F(NamedPairs, AreTurnedOverByRenamesAlone) {
  for (int i = 0; i < 1000; ++i) put(a.inside() / ("d" + std::to_string(i % 7)) / std::to_string(i), "text", i);
  quiet();
  const std::string tree = a.tree();
  int encrypted = 0;
  const auto before = archives(encrypted);
  EXPECT_EQ(before.size(), 1000U);
  for (const bool on : {true, false, true}) {
    a.setNames(on);
    EXPECT_TRUE(a.resetNames());
    EXPECT_TRUE(archives(encrypted) == before) << "written again";
    EXPECT_EQ(encrypted, on ? 1000 : 0);
    EXPECT_EQ(a.cycle() + b.cycle(), "");
    a.start();
    b.start();
    EXPECT_EQ(a.cycle() + b.cycle(), "") << "the state followed";
    EXPECT_EQ(a.tree() + b.tree(), tree + tree);
  }
  put(b.inside() / "d1/1", "new", 5000);
  fs::remove(b.inside() / "d2/2");
  fs::remove(a.inside() / "d3/3");
  quiet();
  EXPECT_EQ(archives(encrypted).size(), 998U);
  EXPECT_EQ(contentOf(a.inside() / "d1/1"), "new");
}

// Killed between any two renames: the state knows nothing of those that were done.
TEST_F(NamedPairs, AreTurnedOverInSeveralAttempts) {
  struct Kill {};
  for (const char* name : {"1", "2", "d/3", "d/4", "e/5"}) put(a.inside() / name, name, 10);
  quiet();
  const std::string tree = a.tree();
  a.setNames(true);
  for (int limit = 1; limit < 5; ++limit) {
    int done = 0;
    const auto killAt = [&](const std::wstring&, const std::wstring&) {
      if (++done == 1) throw Kill();
    };
    EXPECT_THROW(a.handler().resetStateFNE(killAt), Kill);
    a.start();
    EXPECT_EQ(b.cycle() + a.cycle(), "");
    int encrypted = 0;
    EXPECT_EQ(archives(encrypted).size(), 5U);
    EXPECT_EQ(encrypted, limit);
  }
  EXPECT_TRUE(a.resetNames());
  quiet();
  EXPECT_EQ(a.tree(), tree);
}

// Two archives of one file: the newer stays, the other's content is in a recycle bin or known; versions of one time
// become a conflict copy. Whoever looks first.
TEST_F(NamedPairs, EndWithOneArchiveForEachFile) {
  const struct {
    int plain, encrypted;
    bool same, synced;
    const char* tree;
  } table[] = {
      {20, 30, false, false, "x=encrypted@30"},
      {30, 20, false, false, "x=plain@30"},
      {20, 30, false, true, "x=encrypted@30"},
      {30, 20, false, true, "x=plain@30"},
      {20, 20, true, false, "x=plain@20"},
      {20, 20, true, true, "x=plain@20"},
      {20, 20, false, false, "x!=plain@20 x=encrypted@20"},
      // Each device keeps what it had.
      {20, 20, false, true, "x!=plain@20 x!=plain@20 x=encrypted@20"},
  };
  for (const bool aFirst : {true, false}) {
    for (const auto& row : table) {
      bring("x", false, "plain", row.plain);
      if (row.synced) quiet();
      bring("x", true, row.same ? "plain" : "encrypted", row.encrypted);
      if (!aFirst) b.cycle();
      quiet();
      EXPECT_EQ(withShortConflicts(a.tree()), row.tree) << row.plain << row.encrypted << row.synced << aFirst;
      int encrypted = 0;
      const std::string tree = row.tree;
      EXPECT_EQ(archives(encrypted).size(), static_cast<std::size_t>(std::count(tree.begin(), tree.end(), '=')));
      for (const fs::directory_entry& entry : fs::directory_iterator(a.inside()))
        if (entry.path().filename() != ".rid") fs::remove(entry);
      quiet();
      EXPECT_EQ(archives(encrypted).size(), 0U);
    }
  }
}

TEST_F(NamedPairs, EditTheSameFileByTurns) {
  for (int time = 10; time < 60; time += 10) {
    Device& editor = time % 20 == 0 ? a : b;
    put(editor.inside() / "x", std::to_string(time), time);
    quiet();
    EXPECT_EQ(a.tree(), "x=" + std::to_string(time) + "@" + std::to_string(time));
    int encrypted = 0;
    EXPECT_EQ(archives(encrypted).size(), 1U);
    EXPECT_EQ(encrypted, &editor == &b ? 1 : 0);
  }
  // What is deleted on one side, under whatever name, is no addition.
  for (Device* deleter : {&a, &b}) {
    fs::remove(deleter->inside() / "x");
    quiet();
    EXPECT_EQ(a.tree(), "");
    put(b.inside() / "x", "again", 100);
    quiet();
  }
}

TEST_F(NamedPairs, GetACloudClientsCopyUnderItsPlainName) {
  put(b.inside() / "report.txt", "1", 10);
  quiet();
  const fs::path archive = b.archive("report.txt.kelta");
  const std::string stem = archive.stem().string();
  for (const std::string added : {" (Ann's conflicted copy 2024-05-01)", " (1)", "_conflict-20240501-101500"}) {
    fs::copy_file(archive, a.outside() / (stem + added + ".kelta"));
    quiet();
    EXPECT_TRUE(fs::exists(a.inside() / ("report" + added + ".txt"))) << a.tree();
  }
  // The original has gone, and what was added is no cloud client's.
  const std::string tree = a.tree();
  fs::copy_file(archive, a.outside() / (stem + " or so.kelta"));
  quiet();
  EXPECT_EQ(a.tree(), tree);
  EXPECT_NE(a.handler().getQuarantineAsJSON().find(L"Encrypted name that was changed"), std::wstring::npos);
  int encrypted = 0;
  EXPECT_EQ(archives(encrypted).size(), 5U);
  EXPECT_EQ(encrypted, 4);
}

TEST_F(NamedPairs, LeaveAloneWhatHasNoKeyOrNoRoom) {
  const std::string longName(160, 'l');
  put(b.inside() / "x", "1", 10);
  put(b.inside() / longName, "1", 10);
  b.cycle();
  EXPECT_NE(b.handler().getQuarantineAsJSON().find(L"Path too long"), std::wstring::npos);
  int encrypted = 0;
  EXPECT_EQ(archives(encrypted).size(), 1U);
  a.handler().clearAssets();
  put(a.inside() / "y", "1", 10);
  a.setNames(true);
  a.cycle();
  EXPECT_EQ(a.tree(), "y=1@10");
  EXPECT_EQ(archives(encrypted).size(), 1U) << "no name leaves in plain form";
  EXPECT_NE(a.handler().getQuarantineAsJSON().find(L"\"no-key\""), std::wstring::npos);
  a.handler().setAssetKey(L"main", testKey());
  fs::remove(b.inside() / longName);
  quiet();
  EXPECT_EQ(a.tree(), "x=1@10 y=1@10");
}

// Names change with the key. A device that does not have the new one yet takes nothing for deleted.
TEST_F(NamedPairs, FollowAChangeOfTheirKey) {
  const std::wstring newKey(64, L'5');
  put(a.inside() / "d/x", "1", 10);
  put(a.inside() / "y", "2", 20);
  a.setNames(true);
  quiet();
  const std::string tree = a.tree();
  const std::set<fs::path> before = files(a.outside());
  EXPECT_TRUE(a.changeKey(newKey));
  for (const fs::path& archive : files(a.outside())) EXPECT_EQ(before.count(archive), 0U) << archive;
  EXPECT_EQ(a.cycle(), "");
  b.cycle();
  EXPECT_EQ(b.cycle(), "");
  EXPECT_EQ(b.tree(), tree);
  EXPECT_EQ(files(a.outside()).size(), before.size());
  b.handler().setAssetKey(L"main", newKey);
  put(a.inside() / "y", "newer", 30);
  quiet();
  EXPECT_EQ(b.tree(), "d/ d/x=1@10 y=newer@30");
  EXPECT_EQ(files(a.outside()).size(), before.size());
  fs::remove(a.inside() / "y");
  quiet();
  EXPECT_EQ(b.tree(), "d/ d/x=1@10");
}

// An archive of an earlier version, whose plain name looks encrypted, is known by its file.
TEST_F(NamedPairs, KeepAnEarlierArchiveThatLooksEncrypted) {
  const std::string name(64, 'Q');
  put(a.inside() / name, "1", 10);
  a.cycle();
  const std::wstring encryptedName = a.handler().transformName(std::wstring(64, L'Q'));
  fs::rename(a.outside() / platform::pathOf(encryptedName), a.outside() / (name + ".kelta"));
  EXPECT_EQ(a.cycle(), "");
  a.start();
  EXPECT_EQ(a.cycle() + b.cycle(), "");
  EXPECT_NE(b.handler().getQuarantineAsJSON().find(L"path-issue"), std::wstring::npos);
  put(a.inside() / name, "2", 20);
  quiet();
  EXPECT_EQ(contentOf(b.inside() / name), "2");
  int encrypted = 0;
  EXPECT_EQ(archives(encrypted).size(), 1U);
}

}  // namespace
}  // namespace test
}  // namespace Kelta
