// SPDX-License-Identifier: Apache-2.0
// Asset keys over whole devices: shares, keys that come late or change, single files, removals.
#include <regex>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "archive/Archive.h"
#include "archive/ConsolePwdListener.h"
#include "archive/zip/ArchiveEngine.h"
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
  bool change(Device& device, const std::wstring& key) { return device.changeKey(key); }
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
  fs::rename(folder / "outside/x.kelta", folder / "outside/w.kelta");
  EXPECT_EQ(a.cycle().substr(0, 8), "rename:w") << "recognised by what it holds now";
  fs::rename(folder / "outside/w.kelta", folder / "outside/x.kelta");
  EXPECT_EQ(a.cycle(), "rename:x");
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
  EXPECT_FALSE(a.handler().changeAssetKey(L"main", kNewKey, {})) << "no archive was seen";
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

// Whoever can write to the Outside makes wrapped passwords of an archive's own, whose plain text he may influence, and
// watches what becomes of them. Everything that no password of a pair opens must look the same to him.
class Oracle : public Keys {
protected:
  Oracle() {
    put(folder / "plain", "planted", 0);
    put(folder / "meta/__KELASSET_.json", "{}", 0);
  }
  std::string wrapped(std::string password, const std::wstring& key = testKey()) {
    std::string keyText = platform::utf8(key);
    std::string cipher;
    CryptoHelper().encrypted(password, keyText, std::string(16, 'v'), cipher);
    return hexOf(cipher.data(), cipher.size());
  }
  /// An archive whose content is encrypted under the password "a", or not at all.
  void plant(const fs::path& archive, const std::string& asset, const std::string& hex, bool encrypted, int time) {
    put(folder / "meta/__KELASSET_.json", metadataText(asset, hex), 0);
    zip::ArchiveEngine engine;
    archive::ConsolePwdListener password("a");
    engine.setPasswordListener(&password);
    zip::EntryOptions content;
    content.setCompression(zip::kStored, 0);
    const zip::EntryOptions metadata = content;
    if (encrypted) content.setEncryption(0x6610, 256, 0x4101);
    engine.addFile(folder / "plain", "Content", content);
    engine.addFile(folder / "meta/__KELASSET_.json", "__KELASSET_.json", metadata);
    engine.setWriteFlags(zip::ArchiveEngine::kReplaceTarget);
    engine.writeArchive(archive);
    platform::setLastWriteTime(archive, (kEpoch + time) * 1000000000);
  }
  /// What is to be seen of such an archive that is newer than the Inside, older, as old, alone, and put over one that
  /// is in sync; and what the host gets to know.
  std::string effectsOf(const std::string& asset, const std::string& hex, bool encrypted) {
    fs::remove_all(folder / "d");
    fs::remove_all(folder / "o");
    Device d(folder / "d", folder / "o");
    const auto edit = [&](const char* name, int time) { put(d.inside() / name, std::string("edited ") + name, time); };
    for (const char* name : {"newer", "older", "tie", "same"}) edit(name, 10);
    int asked = 0;
    d.handler().registerKeyNotFound([&](const std::wstring&) { return ++asked, std::wstring(); });
    std::string seen = d.cycle();
    const std::pair<const char*, int> planted[] = {
        {"newer", 30}, {"older", 20}, {"tie", 25}, {"alone", 20}, {"same", 10}};
    for (const auto& row : planted)
      plant(d.outside() / (row.first + std::string(".kelta")), asset, hex, encrypted, row.second);
    for (const char* name : {"newer", "older", "tie", "same"}) edit(name, 25);
    for (const int pause : {0, 0, 91, 0}) {
      d.clock().advance(pause * 1000);
      seen += "\n" + d.cycle();
    }
    seen += "\n" + verify(d) + (d.handler().verifyAssetKey(L"main") ? " fits" : " does not fit");
    seen += d.changeKey(kNewKey) ? " changed" : " not changed";
    seen += "\n" + std::to_string(asked) + "\n" + d.notifications() + quarantine(d) + "\n" + d.tree() + "\n";
    std::set<std::string> left;
    for (const fs::directory_entry& entry : fs::directory_iterator(d.outside())) {
      if (entry.path().filename() == ".kelta") continue;
      const std::string content = contentOf(entry.path());
      left.insert(platform::utf8(entry.path().filename()) + (content.find(hex) == std::string::npos ? "" : ":planted") +
                  "@" + std::to_string(platform::stampOf(entry.path()).seconds() - kEpoch));
    }
    for (const std::string& line : left) seen += line + "\n";
    seen = std::regex_replace(withShortConflicts(seen), std::regex("[0-9-]{10}T[0-9:]{8}Z"), "TIME");
    return std::regex_replace(seen, std::regex("quar/[0-9a-f]{32}"), "quar/RECORD");
  }
};

TEST_F(Oracle, WhatNoPasswordOpensLooksTheSame) {
  const std::string right(64, '7');
  std::string flipped = wrapped(right);
  char& last = flipped[2 * (16 + 48) + 31];  // of the block before the padding: 0x10 becomes 0x11 to 0x1f
  last = last == '0' ? '1' : '0';
  const std::pair<const char*, std::string> rows[] = {{"wrong padding", flipped},
                                                      {"another key", wrapped(right, kNewKey)},
                                                      {"one letter, which opens the content", wrapped("a")},
                                                      {"nothing", wrapped("")},
                                                      {"a text", wrapped("correct horse battery staple")},
                                                      {"63 digits", wrapped(std::string(63, '7'))},
                                                      {"65 digits", wrapped(std::string(65, '7'))},
                                                      {"64 letters", wrapped(std::string(64, 'g'))},
                                                      {"31 bytes", wrapped(std::string(31, '\xFF'))},
                                                      {"64 digits", wrapped(right)},
                                                      {"64 capital digits", wrapped(std::string(64, 'A'))},
                                                      {"32 bytes", wrapped(std::string(32, '\0'))},
                                                      {"no digits", "xyz"},
                                                      {"half a block", wrapped(right).substr(0, 80)}};
  for (const bool encrypted : {true, false}) {
    const std::string expected = effectsOf("main", flipped, encrypted);
    EXPECT_EQ(expected.find("Quarantine for alone\"") != std::string::npos, encrypted) << expected;
    EXPECT_EQ(expected.find("=planted"), std::string::npos) << expected;
    for (const auto& row : rows) EXPECT_EQ(effectsOf("main", row.second, encrypted), expected) << row.first;
  }
}

// Both sides changed, the Inside later. What a tool added to the other version does not matter where it can still be
// read; else the archive itself is what is kept.
TEST_F(Keys, AVersionThatIsReplacedIsKeptWhateverWasDoneToIt) {
  Device b(folder / "b", folder / "outside");
  const fs::path archive = folder / "outside/x.kelta";
  const auto number = [](std::string& bytes, std::size_t at) { return reinterpret_cast<std::uint32_t*>(&bytes[at]); };
  const auto metadata = [&] { return archive::readEntry(archive, "__KELASSET_.json", ""); };
  const std::tuple<const char*, bool, std::function<void()>> rows[] = {
      {"nothing", true, [] {}},
      {"a byte behind", true, [&] { put(archive, contentOf(archive) + "x", 20); }},
      {"bytes in front", true, [&] { put(archive, "in front" + contentOf(archive), 20); }},
      {"text behind the JSON", true, [&] { rewriteMetadata("x.kelta", metadata() + " more {"); }},
      {"a second metadata entry", true,
       [&] {
         put(folder / "__KELASSET_.jsoX", "{\"assets\":[{\"other\":\"00\"}]}", 0);
         archive::updateMetadata(archive, folder / "__KELASSET_.jsoX");
         put(archive, std::regex_replace(contentOf(archive), std::regex("jsoX"), "json"), 20);
       }},
      {"bytes before the directory", false,
       [&] {
         std::string bytes = contentOf(archive);
         std::uint32_t* const offset = number(bytes, bytes.size() - 6);
         bytes.insert(*offset, 4, '\0');
         *number(bytes, bytes.size() - 6) += 4;
         put(archive, bytes, 20);
       }},
      {"no JSON", false, [&] { rewriteMetadata("x.kelta", "no JSON"); }},
      {"another byte in the content", false,
       [&] {
         std::string bytes = contentOf(archive);
         bytes[160] = static_cast<char>(bytes[160] ^ 1);
         put(archive, bytes, 20);
       }},
      {"cut short", false, [&] { put(archive, contentOf(archive).substr(0, 150), 20); }}};
  int time = 0;
  for (const bool withBin : {true, false}) {
    if (!withBin && fs::path::preferred_separator != '/') continue;
    fs::remove_all(folder / "b/data/Trash");
    if (!withBin) put(folder / "b/data/Trash", "no folder", 0);
    for (const auto& row : rows) {
      SCOPED_TRACE(std::get<0>(row));
      const std::string theirs = std::string("theirs, before ") + std::get<0>(row) + (withBin ? "" : ", no bin");
      put(a.inside() / "x", "both", time += 10);
      for (Device* device : {&a, &b, &a}) device->cycle();
      put(b.inside() / "x", theirs, time += 10);
      b.cycle();
      std::get<2>(row)();
      platform::setLastWriteTime(archive, (kEpoch + time) * 1000000000);
      put(a.inside() / "x", "mine", time += 10);
      a.pair().clearNotifications();
      const std::string raw = contentOf(archive);
      a.cycle();
      std::multiset<std::string> kept = a.bin().contents();
      for (const fs::path& side : {a.inside(), a.outside()})
        for (const fs::directory_entry& entry : fs::directory_iterator(side)) kept.insert(contentOf(entry.path()));
      EXPECT_EQ(kept.count(std::get<1>(row) ? theirs : raw), 1u);
      EXPECT_EQ(a.notifications().find("cannot be read and is to be replaced") == std::string::npos, std::get<1>(row));
      EXPECT_EQ(a.bin().contents().count(raw) == 1, withBin && !std::get<1>(row));
      b.cycle();
      EXPECT_EQ(contentOf(b.inside() / "x"), "mine");
    }
  }
}

TEST_F(Keys, AnArchiveThatHoldsTooMuchIsForeignAndSaidOnce) {
  const fs::path archive = folder / "outside/x.kelta";
  put(a.inside() / "x", "content", 10);
  a.cycle();
  const std::string good = archive::readEntry(archive, "__KELASSET_.json", "");
  const std::string whole = contentOf(archive);
  const auto assets = [&](int others, const std::string& id = std::string(200, 'y')) {
    std::string text = good.substr(0, 11);
    for (int i = 0; i < others; ++i)
      text += "{\"" + (id == "main" ? id : id + std::to_string(i)) + "\":\"" + std::string(608, '0') + "\"},";
    rewriteMetadata("x.kelta", text + good.substr(11));
  };
  const auto size = [&](std::size_t bytes) {
    rewriteMetadata("x.kelta", std::string(bytes - good.size(), ' ') + good);
  };
  const auto entries = [&](int count) {
    zip::ArchiveEngine engine;
    for (int i = 2; i < count; ++i) engine.addFile(folder / "empty", std::to_string(i), zip::EntryOptions());
    engine.setWriteFlags(zip::ArchiveEngine::kReplaceTarget);
    engine.updateArchive(archive);
  };
  put(folder / "empty", "", 0);
  const std::pair<bool, std::function<void()>> rows[] = {
      {true, [&] { assets(63); }},    {true, [&] { assets(63, "main"); }}, {false, [&] { assets(64); }},
      {true, [&] { size(65536); }},   {false, [&] { size(65537); }},       {true, [&] { entries(1024); }},
      {false, [&] { entries(1025); }}};
  int asked = 0;
  a.handler().registerKeyNotFound([&](const std::wstring&) { return ++asked, std::wstring(); });
  for (const auto& row : rows) {
    put(archive, whole, 10);
    row.second();
    for (int time = 0; time < 2; ++time) {
      a.pair().clearNotifications();
      const LogCatcher log;
      const bool opened = a.handler().decryptSingle(archive, folder / "y") == L"decrypt";
      EXPECT_EQ(opened, row.first) << &row - rows;
      EXPECT_LT(log.everything().size(), 20000U);
      EXPECT_EQ(a.notifications().find("Quarantine for x\"") != std::string::npos, !row.first && time == 0);
    }
    EXPECT_EQ(quarantine(a).find("more than an archive") != std::string::npos, !row.first);
    EXPECT_TRUE(change(a, testKey())) << "what is foreign has no key to be changed";
  }
  EXPECT_EQ(asked, 0);
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
    const auto last = [&](const platform::Spot& fresh, const platform::EntryId& id, const platform::Spot& target) {
      return replaceJudged(fresh, id, target, known);
    };
    EXPECT_THROW(archive::replaceMetadata({platform::OpenFolder(archive.parent_path()), archive.filename()}, known,
                                          meta, with, last,
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
