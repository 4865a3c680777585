// SPDX-License-Identifier: Apache-2.0
// What the handler decides about entries: ignored, quarantined, deleted.
#include <map>

#include "platform/AtomicFile.h"
#include "support/HandlerFixture.h"

using namespace Kelta;
using namespace Kelta::test;
namespace fs = boost::filesystem;

namespace {

TEST_F(HandlerTest, IgnoresWhatCannotBeSynchronisedAndRecordsIt) {
  for (const char* name : {"in/plain", "in/a.kelta", "in/b.KELTA", "out/a.kelta", "in/desktop.ini"}) write(name, "x");
  for (const char* name : {"in/plain", "in/b.KELTA", "out/a.kelta", "in/missing\tname"})
    EXPECT_FALSE(handler.ignore(folder / name)) << name;
  EXPECT_TRUE(handler.ignore(folder / "in/desktop.ini"));
  EXPECT_EQ(quarantine().size(), 0U);
  EXPECT_TRUE(handler.ignore(folder / "in/a.kelta"));
  for (const std::string& name : unusableNames()) {
    write("in/" + name, "x");
    EXPECT_TRUE(handler.ignore(folder / ("in/" + name))) << name;
  }
  EXPECT_EQ(quarantine().size(), 1 + unusableNames().size());
  const int changed = handler.quarantineLastUpdate();
  clock->advance(10000);
  EXPECT_TRUE(handler.ignore(folder / "in/a.kelta"));
  EXPECT_EQ(handler.quarantineLastUpdate(), changed);
  EXPECT_NE(handler.getQuarantineAsJSON().find(L"/in/a.kelta\""), std::wstring::npos);

  // What is gone takes its record along, whatever its name; a side that is away says nothing.
  fs::rename(folder / "in", folder / "away");
  handler.beginOperation();
  EXPECT_EQ(quarantine().size(), 1 + unusableNames().size());
  fs::rename(folder / "away", folder / "in");
  for (const std::string& name : unusableNames()) fs::remove(folder / ("in/" + name));
  handler.beginOperation();
  EXPECT_EQ(quarantine().size(), 1U);
  EXPECT_EQ(handler.quarantineLastUpdate(), unusableNames().empty() ? changed : clock->nowSeconds());
}

TEST_F(HandlerTest, RemovesOnlyAbandonedTemporaries) {
  const std::string abandoned = platform::temporaryName();
  const std::string busy = platform::temporaryName();
  platform::forgetTemporaryName(abandoned);
  for (const std::string place : {"in/", "out/", "elsewhere/", "temp/folder/"}) {
    write(place + abandoned, "x");
    write(place + busy, "x");
    EXPECT_TRUE(handler.ignore(folder / (place + abandoned)));
    EXPECT_TRUE(handler.ignore(folder / (place + busy)));
    EXPECT_EQ(there(place + abandoned), place == "elsewhere/") << place;
    EXPECT_TRUE(there(place + busy));
  }
  write("in/folder/" + abandoned + "/kept", "x");
  EXPECT_TRUE(handler.ignore(folder / ("in/folder/" + abandoned)));
  EXPECT_TRUE(there("in/folder/" + abandoned + "/kept"));
  write("temp/" + abandoned + "/plain", "x");
  write("temp/" + busy + "/plain", "x");
  write("temp/foreign/kept", "x");
  handler.sweepTempFolder();
  EXPECT_FALSE(there("temp/" + abandoned));
  EXPECT_TRUE(there("temp/" + busy + "/plain"));
  EXPECT_TRUE(there("temp/foreign/kept"));
  platform::forgetTemporaryName(busy);
}

TEST_F(HandlerTest, TheQuarantineListAlwaysParses) {
  handler.recordQuarantine(folder / "in/say \"hi\"\n", L"a \"message\"", L"path-issue");
  const std::string name(32, 'a');
  write("quar/" + name + ".txt", "id\tno-key\tbroken \"quote\" \\x\t2024\t/in/b\n");
  write("quar/" + std::string(32, 'b') + ".txt", "too\tfew\n");
  write("quar/" + std::string(32, 'c') + ".txt", "1\t2\t3\t4\t\xFF\n");
  write("quar/notes.txt", "1\t2\t3\t4\t5\n");
  ASSERT_EQ(quarantine().size(), 2U);
  std::map<std::string, std::string> messages;
  for (const auto& record : quarantine())
    messages[record.second.get<std::string>("quarantine_path")] = record.second.get<std::string>("message");
  EXPECT_EQ(messages[platform::utf8(folder / "in/say \"hi\"\n")], "a \"message\"");
  EXPECT_EQ(messages["/in/b"], "broken \"quote\" \\x");

  // Clearing takes what the list gives, and removes nothing else.
  write("in/" + name + ".txt", "a user's file");
  for (const std::string& path : {"in/" + name + ".txt", "quar/../in/" + name + ".txt", std::string("quar/notes.txt")})
    EXPECT_FALSE(handler.clearQuarantineRecord(folder.wide(path))) << path;
  EXPECT_FALSE(handler.clearQuarantineRecord(L""));
  EXPECT_TRUE(there("in/" + name + ".txt"));
  clock->advance(7000);
  EXPECT_TRUE(handler.clearQuarantineRecord(folder.wide("quar/" + name + ".txt")));
  EXPECT_FALSE(there("quar/" + name + ".txt"));
  const int changed = handler.quarantineLastUpdate();
  EXPECT_EQ(changed, clock->nowSeconds());
  clock->advance(-60000);
  handler.recordQuarantine(folder / "in/x", L"m", L"path-issue");
  EXPECT_EQ(handler.quarantineLastUpdate(), changed + 1) << "a change shows even when the clock was set back";
  clock->advance(120000);
  const std::int64_t now = clock->nowSeconds();
  for (const std::int64_t shown : {now, now + 1, now + 1, now + 1}) {
    handler.recordQuarantine(folder / "in/x", L"m", L"path-issue");
    EXPECT_EQ(handler.quarantineLastUpdate(), shown) << "never more than a second ahead";
  }
  clock->advance(1000);
  EXPECT_EQ(handler.quarantineLastUpdate(), now + 2) << "the latest change still shows";
  EXPECT_EQ(handler.quarantineLastUpdate(), now + 2);

  fs::remove_all(folder / "quar");
  for (int i = 0; i < 2; ++i) {
    handler.recordQuarantine(folder / "in/x", L"m", L"path-issue");
    EXPECT_EQ(handler.getQuarantineAsJSON(), L"{\"quarantined\":[]}");
    if (i == 0) write("quar", "a file in the folder's place");
  }
  EXPECT_EQ(read("quar"), "a file in the folder's place");
}

TEST_F(HandlerTest, QuarantineRecordsAreOfTheDiskAndGoWithTheirReason) {
  const auto nameFor = [&](const std::string& side, std::size_t characters, const std::string& end) {
    const std::size_t rest = characters - folder.wide(side + "/" + end).size();
    return side + "/nnn." + std::string(rest - 4, 'n') + end;
  };
  int changed = 0;
  for (const std::string& entry : {nameFor("in", 261, ".txt"), nameFor("out", 261, ".kelta")}) {
    write(entry, "x");
    EXPECT_TRUE(handler.ignore(folder / entry));
    EXPECT_GT(handler.quarantineLastUpdate(), changed);
    changed = handler.quarantineLastUpdate();
    const std::string shorter = nameFor(entry.substr(0, entry.find('/')), 260, ".kelta\xC3\xA4\xC3\xA4");
    write(shorter, "x");
    EXPECT_FALSE(handler.ignore(folder / shorter)) << "the limit counts characters, not bytes";
  }
  ASSERT_EQ(notifications.size(), 2U);
  EXPECT_EQ(notifications[1].find(L"SYNC: Quarantine, path too long: nnn"), 0U);
  EXPECT_EQ(notifications[1].find(L".kelta"), std::wstring::npos);
  CryptoSyncCopyHandler restarted(services());
  restarted.setQuarFolder(folder.wide("quar"));
  EXPECT_EQ(restarted.getQuarantineAsJSON(), handler.getQuarantineAsJSON());
}

TEST_F(HandlerTest, DeletesTheCounterpartOfAFile) {
  write("out/d/x.kelta", "x");
  EXPECT_EQ(handler.doDelete(folder.wide("in/d/x")), std::make_pair(true, true));
  EXPECT_FALSE(there("out/d/x.kelta"));
  write("in/x", "the user may want it back");
  EXPECT_EQ(handler.doDelete(folder.wide("out/x.kelta")), std::make_pair(true, true));
  EXPECT_FALSE(there("in/x"));
  EXPECT_TRUE(bin.holds("the user may want it back"));
  EXPECT_EQ(handler.doDelete(folder.wide("in/never/was")), std::make_pair(true, true));
  // It came back in the meantime.
  write("in/x", "again");
  write("out/x.kelta", "x");
  EXPECT_EQ(handler.doDelete(folder.wide("in/x")), std::make_pair(false, false));
  EXPECT_TRUE(there("out/x.kelta"));
}

TEST_F(HandlerTest, DeletesNothingElse) {
  for (const char* root : {"in", "in/", "out", "out/"})
    EXPECT_EQ(handler.doDelete(folder.wide(root)), std::make_pair(false, false)) << root;
  EXPECT_TRUE(there("in") && there("out"));
  write("elsewhere/x", "x");
  EXPECT_EQ(handler.doDelete(folder.wide("elsewhere/y")), std::make_pair(false, false));
  if (makeLink(folder / "elsewhere/x", folder / "in/link") && makeLink(folder / "elsewhere", folder / "in/linked")) {
    for (const char* entry : {"link.kelta", "linked/x.kelta", "linked/"})
      EXPECT_EQ(handler.doDelete(folder.wide("out/" + std::string(entry))), std::make_pair(false, true)) << entry;
    EXPECT_TRUE(there("in/link") && there("in/linked"));
  }
  EXPECT_EQ(handler.doDelete(folder.wide("out/a/../../elsewhere/x.kelta")), std::make_pair(false, true));
  EXPECT_TRUE(there("elsewhere/x"));
  // A file's deletion takes no folder, a folder's no file, and a foreign file has no counterpart.
  write("in/folder/kept", "x");
  write("in/file", "x");
  EXPECT_EQ(handler.doDelete(folder.wide("out/folder.kelta")), std::make_pair(false, true));
  EXPECT_EQ(handler.doDelete(folder.wide("out/file/")), std::make_pair(false, true));
  EXPECT_EQ(handler.doDelete(folder.wide("out/file")), std::make_pair(false, false));
  EXPECT_TRUE(there("in/folder/kept") && there("in/file"));
}

TEST_F(HandlerTest, DeletesAFolderOnlyWhenNothingOfTheUsersIsLeft) {
  const std::string abandoned = platform::temporaryName();
  platform::forgetTemporaryName(abandoned);
  write("in/d/.rid", "+1");
  write("in/d/" + abandoned, "rest");
  write("in/d/note.txt", "new");
  EXPECT_EQ(handler.doDelete(folder.wide("out/d/")), std::make_pair(false, true));
  EXPECT_TRUE(there("in/d/note.txt") && there("in/d/.rid"));
  fs::remove(folder / "in/d/note.txt");
  EXPECT_EQ(handler.doDelete(folder.wide("out/d/")), std::make_pair(true, true));
  EXPECT_FALSE(there("in/d"));
  fs::create_directory(folder / "out/e");
  EXPECT_EQ(handler.doDelete(folder.wide("in/e/")), std::make_pair(true, true));
  EXPECT_FALSE(there("out/e"));
}

TEST(AssetKeysTest, TheFirstAssetStaysTheDefault) {
  AssetKeys keys;
  for (const std::string& id : {std::string(), std::string("a\"b"), std::string("a\\b"), std::string("a\nb"),
                                std::string("\xFF"), std::string(256, 'x')})
    EXPECT_FALSE(keys.install(id, "key")) << id;
  EXPECT_FALSE(keys.install("id", ""));
  EXPECT_EQ(keys.defaultId(), "");
  ASSERT_TRUE(keys.install("own", "key 1"));
  ASSERT_TRUE(keys.install("shared", "key 2"));
  ASSERT_TRUE(keys.install("own", "key 3"));
  EXPECT_EQ(*keys.find("own"), "key 3");
  EXPECT_TRUE(keys.remove("own"));
  EXPECT_EQ(keys.find("own"), nullptr);
  EXPECT_EQ(keys.defaultId(), "own");  // nothing slips under the shared key
  keys.clear();
  EXPECT_EQ(keys.find("shared"), nullptr);
  EXPECT_EQ(keys.defaultId(), "");
}

}  // namespace
