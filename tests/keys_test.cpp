// SPDX-License-Identifier: Apache-2.0
// Asset keys over whole devices: shares, keys that come late or change, single files, removals.
#include <regex>

#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "kelsyncpair/kelsyncpair.h"
#include "support/Device.h"
#include "support/HandlerFixture.h"
#include "support/LogCatcher.h"

namespace Kelta {
namespace test {
namespace {

const std::wstring kNewKey(64, L'5');

class Keys : public ::testing::Test {
protected:
  std::string assetOf(const std::string& archive) {
    const std::string text = archive::readEntry(folder / ("outside/" + archive), "__KELASSET_.json", "");
    return text.substr(13, text.find('"', 13) - 13);
  }
  std::string quarantine(Device& device) { return platform::utf8(device.handler().getQuarantineAsJSON()); }
  bool change(Device& device, const std::wstring& key) { return device.handler().changeAssetKey(L"main", key, {}); }
  /// What each archive showed under the device's keys: "x.kelta:verify …".
  std::string verify(Device& device) {
    std::set<std::string> lines;
    device.handler().verifyArchives(
        [&](const std::wstring& outcome, const std::wstring& path, std::uint64_t, std::uint64_t) {
          lines.insert(platform::utf8(platform::pathOf(path).filename()) + ":" + platform::utf8(outcome));
        });
    std::string text;
    for (const std::string& line : lines) text += (text.empty() ? "" : " ") + line;
    return text;
  }
  void rewriteMetadata(const std::string& archive, const std::string& text) {
    put(folder / "__KELASSET_.json", text, 0);
    archive::updateMetadata(folder / ("outside/" + archive), folder / "__KELASSET_.json");
  }

  TempFolder folder;
  Device a{folder / "a", folder / "outside"};
};

TEST_F(Keys, SharesReachThoseThatHaveTheirKeys) {
  Device b(folder / "b", folder / "outside");
  for (const std::string share : {"one", "two", "three"}) {
    put(folder / "outside" / share / ".sid", share, 0);
    a.handler().setAssetKey(platform::wideOf(fs::path(share)), L"key of " + platform::wideOf(fs::path(share)));
    put(a.inside() / share / "sub" / "x", share, 10);
  }
  put(a.inside() / "x", "default", 10);
  b.handler().setAssetKey(L"one", L"key of one");
  a.cycle();
  EXPECT_EQ(assetOf("x.kelta") + assetOf("one/sub/x.kelta") + assetOf("two/sub/x.kelta"), "mainonetwo");

  const std::string had = "one/ one/sub/ one/sub/x=one@10 three/ three/sub/ two/ two/sub/ x=default@10";
  b.cycle();
  b.cycle();
  EXPECT_EQ(b.tree(), had);
  EXPECT_EQ(quarantine(b).find("no-key"), std::string::npos) << "before its time";
  b.clock().advance(91000);
  b.cycle();
  EXPECT_EQ(b.cycle(), "") << "what is given up is not tried again";
  for (const char* missing : {"two/sub/x.kelta", "three/sub/x.kelta"})
    EXPECT_NE(quarantine(b).find(missing), std::string::npos) << quarantine(b);

  b.handler().setAssetKey(L"two", L"not its key");
  EXPECT_EQ(quarantine(b).find("two/sub"), std::string::npos);
  b.cycle();
  EXPECT_EQ(b.tree(), had) << "a wrong key yields no file";
  const std::string others = quarantine(b);
  b.handler().setAssetKey(L"two", L"key of two");
  b.cycle();
  EXPECT_EQ(contentOf(b.inside() / "two/sub/x"), "two");
  EXPECT_EQ(quarantine(b), others) << "the other share waits undisturbed";
  EXPECT_NE(others.find("three/sub"), std::string::npos);

  fs::rename(b.inside() / "two/sub/x", b.inside() / "one/y");
  b.cycle();
  EXPECT_EQ(assetOf("one/y.kelta"), "one");
  a.cycle();
  EXPECT_EQ(contentOf(a.inside() / "one/y"), "two");
  EXPECT_FALSE(fs::exists(a.inside() / "two/sub/x"));
  EXPECT_EQ(b.cycle() + a.cycle(), "");
}

TEST_F(Keys, EveryFormOfAKeyOpensItsArchivesAndNoOtherDoes) {
  const std::wstring hex = L"00112233445566778899aabbccddeeff00112233445566778899AABBCCDDEEFF";
  const std::wstring base64 = L"ABEiM0RVZneImaq7zN3u/wARIjNEVWZ3iJmqu8zd7v8=";
  const std::wstring phrase = L"pass phrase \x20AC";
  const std::tuple<std::wstring, std::wstring, bool> rows[] = {
      {hex, base64, true},         {base64, base64.substr(0, 43), true}, {base64.substr(0, 43), testKey(), true},
      {phrase, phrase, true},      {hex, hex.substr(1), false},          {base64, base64.substr(0, 42), false},
      {hex, hex + L"0", false},    {phrase, phrase + L" ", false},       {hex.substr(1), hex.substr(1), true},
      {hex, std::wstring(), false}};
  for (const auto& row : rows) {
    a.handler().setAssetKey(L"main", std::get<0>(row));
    put(folder / "x", "content", 10);
    ASSERT_EQ(a.handler().encryptSingle(folder / "x", folder / "x.kelta"), L"encrypt");
    a.handler().removeAssetKey(L"main");
    a.handler().setAssetKey(L"main", std::get<1>(row));
    const bool opened = a.handler().decryptSingle(folder / "x.kelta", folder / "y") == L"decrypt";
    EXPECT_EQ(opened, std::get<2>(row)) << platform::utf8(std::get<0>(row) + L" / " + std::get<1>(row));
    EXPECT_EQ(fs::exists(folder / "y"), std::get<2>(row));
    fs::remove(folder / "y");
    a.handler().setAssetKey(L"main", std::get<0>(row));
    fs::remove(folder / "x.kelta");
  }
}

TEST_F(Keys, ChangingAKeyLeavesNothingToCopyAndForeignKeysAlone) {
  Device b(folder / "b", folder / "outside");
  a.handler().setAssetKey(L"s", L"share");
  put(folder / "outside/s/.sid", "s", 0);
  for (const char* name : {"x", "s/y", "z"}) put(a.inside() / name, name, 10);
  a.cycle();
  const std::string foreign = contentOf(folder / "outside/s/y.kelta");
  fs::rename(folder / "outside/z.kelta", folder / "outside/z (conflicted copy 2024-05-01).kelta");
  b.cycle();
  for (int i = 0; i < 20; ++i) {
    const auto size = fs::file_size(folder / "outside/x.kelta");
    EXPECT_TRUE(change(a, i == 19 ? kNewKey : std::to_wstring(i)));
    EXPECT_NE(fs::file_size(folder / "outside/x.kelta"), size) << "a cloud client goes by time and size";
  }
  EXPECT_TRUE(change(a, kNewKey));
  EXPECT_TRUE(contentOf(folder / "outside/s/y.kelta") == foreign);
  EXPECT_EQ(verify(b).find("x.kelta:verify"), std::string::npos) << "the old key opens nothing any more";
  b.handler().setAssetKey(L"main", kNewKey);
  EXPECT_EQ(b.cycle().find("x"), std::string::npos);
  a.start();
  a.handler().setAssetKey(L"main", kNewKey);
  a.handler().setAssetKey(L"s", L"share");
  EXPECT_EQ(verify(a).find("no-key"), std::string::npos) << verify(a);
  a.cycle();
  EXPECT_EQ(a.cycle(), "");
  EXPECT_EQ(a.leftovers(), "");
}

TEST_F(Keys, AChangeThatIsNotCompleteIsToldAndKeepsTheOldKeyForReading) {
  for (const char* name : {"x", "y"}) put(a.inside() / name, name, 10);
  a.cycle();
  const std::string whole = contentOf(folder / "outside/y.kelta");
  put(folder / "outside/y.kelta", whole.substr(0, 500), 10);  // on its way from the cloud
  put(folder / "outside/foreign.kelta", "nothing of ours", 10);
  EXPECT_FALSE(change(a, kNewKey));
  EXPECT_NE(a.notifications().find("\"ERROR\""), std::string::npos);
  put(folder / "outside/y.kelta", whole, 10);
  EXPECT_EQ(verify(a), "foreign.kelta:damaged x.kelta:verify y.kelta:verify");
  fs::remove(folder / "outside/foreign.kelta");

  // A new life of the host, with the old key lost: y opens with no key here until the host finds it.
  a.start();
  a.handler().setAssetKey(L"main", kNewKey);
  EXPECT_FALSE(change(a, kNewKey));
  int asked = 0;
  a.handler().registerKeyNotFound([&](const std::wstring& id) {
    ++asked;
    a.handler().setAssetKey(id, L"installed by the callback");
    return std::wstring(testKey());
  });
  EXPECT_TRUE(change(a, kNewKey));
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(verify(a), "x.kelta:verify y.kelta:verify");
  const std::pair<std::wstring, std::wstring> bad[] = {
      {L"", kNewKey}, {L"a\"b", kNewKey}, {L"a\\b", kNewKey}, {L"a\nb", kNewKey}, {L"main", L""}};
  for (const auto& row : bad) EXPECT_FALSE(a.handler().changeAssetKey(row.first, row.second, {}));
  fs::rename(folder / "outside", folder / "unmounted");
  EXPECT_FALSE(change(a, kNewKey)) << "no archive was seen";
}

TEST_F(Keys, OddMetadataFailsThatFileOnly) {
  put(a.inside() / "x", "content", 10);
  a.cycle();
  const std::string good = archive::readEntry(folder / "outside/x.kelta", "__KELASSET_.json", "");
  const std::string member = good.substr(11, good.size() - 13);  // {"main":"…"}
  const std::string hex = member.substr(9, member.size() - 11);
  const auto own = [](const std::string& text) { return "\"main\":\"" + text + "\""; };
  const std::tuple<std::string, bool, bool> rows[] = {
      // metadata, opens, the key's change succeeds
      {good, true, true},
      {"", false, true},
      {"no JSON", false, true},
      {"{\"other\":1}", false, true},
      {"{\"assets\":[{" + own(hex.substr(1)) + "}]}", false, false},
      {"{\"assets\":[{" + own("zz" + hex.substr(2)) + "}]}", false, false},
      {"{\"assets\":[{" + own("00" + hex.substr(2)) + "},{" + own(hex) + "}]}", true, true},
      {"{\"assets\":[{\"a\\\"b\":\"00\"},{\"other\":\"" + hex + "\"},{" + own(hex) + "}]}", true, true},
      {"{\"assets\":[{\"other\":\"00\"," + own(hex) + "}]}", true, true}};
  std::wstring key = testKey();
  for (const auto& row : rows) {
    a.start();
    rewriteMetadata("x.kelta", std::get<0>(row));
    EXPECT_EQ(a.handler().decryptSingle(folder / "outside/x.kelta", folder / "y") == L"decrypt", std::get<1>(row))
        << std::get<0>(row);
    EXPECT_EQ(change(a, kNewKey), std::get<2>(row)) << std::get<0>(row);
    fs::remove(folder / "y");
    EXPECT_EQ(a.handler().decryptSingle(folder / "outside/x.kelta", folder / "y") == L"decrypt", std::get<1>(row))
        << "after the change: " << std::get<0>(row);
    const auto text = archive::readEntry(folder / "outside/x.kelta", "__KELASSET_.json", "");
    EXPECT_EQ(text.find("other") != std::string::npos, std::get<0>(row).find("other") != std::string::npos) << text;
  }
}

TEST_F(Keys, ANewerArchiveIsNeverReplacedByARewrappedOne) {
  const fs::path archive = folder / "outside/x.kelta";
  const fs::path meta = folder / "__KELASSET_.json";
  put(a.inside() / "x", std::string(300000, 'x'), 10);
  a.cycle();
  put(meta, "{}", 0);
  boost::property_tree::ptree tree;
  ASSERT_TRUE(a.handler().getZipMetaJSON(archive, tree));
  const std::string password = a.handler().getPasswordFromMeta(tree).at(0);
  const auto stamp = platform::stampOf(archive);
  const auto replace = [&](const platform::FileStamp& known, const std::string& with, const std::string& newer) {
    const std::string before = contentOf(archive);
    EXPECT_THROW(archive::replaceMetadata(archive, known, meta, with,
                                          [&](std::uint64_t) {
                                            if (!newer.empty()) put(archive, newer, 20);
                                          }),
                 zip::ArchiveError);
    EXPECT_TRUE(contentOf(archive) == (newer.empty() ? before : newer));
  };
  replace(stamp, std::string(64, '0'), "");  // it would open with no key
  platform::FileStamp other = stamp;
  other.nanoseconds += 1;
  replace(other, password, "");
  replace(stamp, password, "newer");
}

TEST_F(Keys, NoKeyAndNoPasswordIsLogged) {
  const LogCatcher log;
  a.start();
  a.handler().setAssetKey(L"s", L"correct horse");
  put(folder / "outside/s/.sid", "s", 0);
  for (const char* name : {"s/x", "y"}) put(a.inside() / name, "content", 10);
  a.cycle();
  Device b(folder / "b", folder / "outside");
  b.handler().registerKeyNotFound([&](const std::wstring&) { return L"late key"; });
  b.cycle();
  EXPECT_TRUE(change(a, kNewKey));
  EXPECT_TRUE(change(a, L"next key"));
  verify(a);
  a.handler().decryptSingle(folder / "outside/y.kelta", folder / "z");
  const std::string lines = log.everything();
  EXPECT_NE(lines.find("assetid = s"), std::string::npos);
  for (const char* secret : {"correct horse", "late key", "next key"})
    EXPECT_EQ(lines.find(secret), std::string::npos) << secret;
  EXPECT_FALSE(std::regex_search(lines, std::regex("[0-9a-f]{64}"))) << "a key, a password or what it is wrapped in";
}

TEST_F(Keys, SingleFilesGoWhereTheyMay) {
  CryptoSyncCopyHandler& handler = a.handler();
  handler.setAssetKey(L"s", L"share");
  put(folder / "outside/s/.sid", "s", 0);
  put(folder / "x", "content", 10);
  boost::system::error_code noLinks;
  fs::create_directory_symlink(folder / "outside/s", folder / "way", noLinks);
  const auto expectEach = [&](const std::vector<std::tuple<bool, const char*, const char*, const wchar_t*>>& rows) {
    for (const auto& row : rows) {
      const fs::path from = folder / std::get<1>(row);
      const fs::path to = folder / std::get<2>(row);
      EXPECT_EQ(std::get<0>(row) ? handler.encryptSingle(from, to) : handler.decryptSingle(from, to), std::get<3>(row))
          << from << " " << to;
    }
  };
  expectEach({{true, "x", "plain name", L"encrypt"},
              {true, "x", "outside/s/new/x.kelta", L"encrypt"},
              {false, "plain name.kelta", "y", L"decrypt"},
              {false, "outside/s/new/x.kelta", "a/inside/deep/x", L"decrypt"},
              {false, "outside/s/new/x.kelta", "outside/leak", L"failed"},
              {true, "x", "a/inside/x.kelta", L"failed"},
              {false, "outside/s/new/x.kelta", "missing/x", L"failed"},
              {true, "none", "none.kelta", L"failed"},
              {false, "outside/s/new/x.kelta", "./outside/leak", L"failed"},
              {false, "outside/s/new/x.kelta", "a/../outside/new/leak", L"failed"},
              {false, "outside/s/new/x.kelta", "way/leak", L"failed"},
              {true, "x", "a/./inside/x.kelta", L"failed"},
              {true, "x", "outside/.kelta", L"failed"},
              {true, "x", "./outside/s/new/y", L"encrypt"},
              {false, "x", "x", L"failed"}});
  handler.removeAssetKey(L"s");
  expectEach({{false, "outside/s/new/x.kelta", "none", L"no-key"}, {true, "x", "outside/s/new/z.kelta", L"no-key"}});
  EXPECT_EQ(assetOf("s/new/x.kelta") + assetOf("s/new/y.kelta"), "ss");
  EXPECT_EQ(namesOf(a.outside()), "s/ s/.sid s/new/ s/new/x.kelta s/new/y.kelta");
  EXPECT_EQ(a.tree(), "deep/ deep/x=content@10");
  EXPECT_EQ(contentOf(folder / "y"), "content");
  EXPECT_FALSE(fs::exists(folder / "none"));
}

TEST_F(Keys, RemovedFilesComeBackAndNothingElseIsTouched) {
  for (const char* name : {"x", "d/y", "d/e/z"}) put(a.inside() / name, name, 10);
  a.cycle();
  const std::string inside = a.tree();
  for (const bool side : {true, false}) {
    put(a.inside() / "d/changed", "old", 10);
    a.cycle();
    put(a.inside() / "d/changed", "new, seen by no scan yet", 20);
    put(a.inside() / "foreign", "new", 10);
    put(a.outside() / "d/README", "foreign", 10);
    a.pair().setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t, std::uint64_t) {
      const std::string state = contentOf(a.state() / "Kelta_sync_state_0.txt");
      EXPECT_EQ(state.find("/x\t"), std::string::npos) << "recorded while it is removed";
    });
    EXPECT_FALSE(a.pair().removeAllFiles(side)) << "a changed file is left";
    if (side)
      EXPECT_EQ(a.tree(), "d/ d/changed=new, seen by no scan yet@20 foreign=new@10");
    else
      EXPECT_EQ(namesOf(a.outside()), "d/ d/README d/changed.kelta");
    EXPECT_EQ(a.bin().holds("d/e/z"), true);
    a.start();  // nothing is forgotten with the engine
    for (int i = 0; i < 2; ++i) a.cycle();
    EXPECT_EQ(a.cycle(), "");
    EXPECT_EQ(a.tree(),
              "d/ d/changed=new, seen by no scan yet@20 d/e/ d/e/z=d/e/z@10 d/y=d/y@10 foreign=new@10 x=x@10");
    EXPECT_EQ(namesOf(a.outside()), "d/ d/README d/changed.kelta d/e/ d/e/z.kelta d/y.kelta foreign.kelta x.kelta");
    fs::remove(a.inside() / "d/changed");
    fs::remove(a.inside() / "foreign");
    a.cycle();
    EXPECT_EQ(a.tree(), inside);
  }
}

}  // namespace
}  // namespace test
}  // namespace Kelta
