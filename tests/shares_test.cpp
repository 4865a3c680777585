// SPDX-License-Identifier: Apache-2.0
// Folders with a key of their own inside one pair.
#include <functional>

#include "archive/Archive.h"
#include "archive/zip/ArchiveEngine.h"
#include "support/Device.h"
#include "support/HandlerFixture.h"

namespace Kelta {
namespace test {
namespace {

class Shares : public HandlerTest {
protected:
  void mark(const std::string& file, const std::string& text) { write(file, text); }
  std::string asset(const std::string& path) {
    handler.beginOperation();
    return handler.getAssetForPath(folder / path);
  }
};

TEST_F(Shares, TheNearestMarkerOnEitherSideNamesTheAsset) {
  mark("out/s/.sid", "s\r\nsecond line");
  mark("in/s/.sid", "loses against the Outside");
  mark("in/s/deep/t/.sid", "\xEF\xBB\xBFt \xC3\xA9");
  const std::pair<const char*, const char*> expected[] = {
      {"in/x", "asset-1"},     {"in/sx/x", "asset-1"},      {"in/s/x", "s"},           {"out/s/x.kelta", "s"},
      {"in/s/a/b/new/x", "s"}, {"out/s/deep/x.kelta", "s"}, {"in/s/deep/t/x", "t é"},  {"in/s/deep/t/u/x", "t é"},
      {"in/s", "asset-1"},     {"elsewhere/x", "asset-1"},  {"in/s/deep/../../x", ""}, {"out/s/deep/t/x.kelta", "t é"}};
  for (const auto& row : expected) EXPECT_EQ(asset(row.first), row.second) << row.first;
  EXPECT_EQ(handler.findShareRoot(folder.wide("in/s/deep/x")), folder.wide("in/s"));
  EXPECT_EQ(handler.findShareRoot(folder.wide("out/s/deep/t")), folder.wide("out/s/deep/t"));
  EXPECT_EQ(handler.findShareRoot(folder.wide("in/x")), L"");

  const std::tuple<const char*, const char*, bool> renames[] = {
      {"in/x", "in/y/z", true},    {"in/s/x", "in/s/a/y", true},        {"in/s/x", "in/x", false},
      {"in/s", "in/r", false},     {"in/s/deep", "in/s/other", true},   {"in/s/x", "in/s/deep/t/x", false},
      {"in/r", "in/s/new", false}, {"out/x.kelta", "out/s/deep", false}};
  for (const auto& row : renames)
    EXPECT_EQ(handler.mayRename(folder.wide(std::get<0>(row)), folder.wide(std::get<1>(row))), std::get<2>(row))
        << std::get<0>(row) << " " << std::get<1>(row);
}

TEST_F(Shares, NothingIsEncryptedUnderAnotherKeyBecauseAMarkerCannotBeRead) {
  const std::string bad[] = {"",
                             "\r\n",
                             std::string("a\0b", 3),
                             "with \"quotes\"",
                             "back\\slash",
                             "\xFF\xFE"
                             "s",
                             std::string(256, 'x'),
                             std::string(70000, 'x'),
                             "folder"};
  write("in/s/x", "secret of the share");
  mark("in/s/.sid", "asset-1");
  for (const std::string& text : bad) {
    boost::filesystem::remove_all(folder / "out/s");
    if (text == "folder")
      boost::filesystem::create_directories(folder / "out/s/.sid");
    else
      mark("out/s/.sid", text);
    EXPECT_EQ(copy("in/s/x", "out/s/x"), kFailed) << text;
    EXPECT_FALSE(there("out/s/x.kelta")) << text;
    EXPECT_TRUE(handler.isKeltaShare(folder.wide("in/s"))) << text;
    write("in/y", "not in the share");
    EXPECT_TRUE(copy("in/y", "out/y").first);
  }
  boost::filesystem::remove_all(folder / "out/s");
  mark("out/s/.sid", "asset-1");
  EXPECT_TRUE(copy("in/s/x", "out/s/x").first) << "the marker is looked at again for every file";
}

TEST_F(Shares, AMarkerThatAppearsDuringTheCopyEndsIt) {
  write("in/s/x", "secret");
  clock->atNextLook([this] { mark("out/s/.sid", "other"); });
  EXPECT_EQ(copy("in/s/x", "out/s/x"), kFailed);
  EXPECT_FALSE(there("out/s/x.kelta"));
}

class ChangedShares : public ::testing::Test {
protected:
  void start() {
    a.start();
    for (const wchar_t* id : {L"s", L"other"}) a.handler().setAssetKey(id, L"a key");
    a.pair().clearNotifications();
  }
  std::string assetOf(const std::string& archive) {
    const std::string text = archive::readEntry(a.outside() / archive, "__KELASSET_.json", "");
    return text.substr(13, text.find('"', 13) - 13);
  }
  void putArchiveOf(const std::string& asset, const std::string& entry) {
    Device b(folder / "b", folder / "elsewhere");
    b.handler().clearAssets();
    b.handler().setAssetKey(platform::wideOf(fs::path(asset)), asset == "main" ? testKey() : L"a key");
    put(folder / "plain", "with the marker", 15);
    EXPECT_EQ(b.handler().encryptSingle(folder / "plain", a.outside() / (entry + ".kelta")), L"encrypt");
  }
  bool told(const std::string& text) { return a.notifications().find(text) != std::string::npos; }
  std::string waiting() { return platform::utf8(a.pair().waiting().asJSON()); }
  bool confirm(const std::string& entry, const wchar_t* id) {
    return a.handler().confirmShare(platform::wideOf(a.inside() / entry), id);
  }

  TempFolder folder;
  Device a{folder / "a", folder / "outside"};
};

// A member of a share who can write to the Outside puts somebody's private archive there, and lets it clash.
TEST_F(ChangedShares, GetNoContentOfAnotherKeyWhereTheHostWantsThat) {
  put(a.outside() / "team/.sid", "s", 0);
  put(a.inside() / "private", "secret", 10);
  put(a.inside() / "team/note", "note", 10);
  start();
  a.cycle();
  const std::string metadata = archive::readEntry(a.outside() / "private.kelta", "__KELASSET_.json", "");
  const struct {
    const char* way;
    std::function<void()> act;
  } rows[] = {{"as it is", [] {}},
              {"named as the share's",
               [&] {
                 const std::string text = metadata.substr(0, 11) + "{\"s\":\"00\"}," + metadata.substr(11);
                 writeFile(folder / "__KELASSET_.json", text);
                 const fs::path archive = a.outside() / "team/zz.kelta";
                 zip::ArchiveEngine engine;
                 engine.addFile(folder / "__KELASSET_.json", "__KELASSET_.json", zip::EntryOptions());
                 engine.setWriteFlags(zip::ArchiveEngine::kReplaceTarget);
                 engine.updateArchive(archive);
               }},
              {"while the marker is away", [&] { fs::remove(a.outside() / "team/.sid"); }}};
  for (const auto& row : rows) {
    for (const bool waits : {true, false}) {
      start();
      a.handler().setChangedSharesWait(waits);
      put(a.outside() / "team/zz.kelta", contentOf(a.outside() / "private.kelta"), 21);
      row.act();
      platform::setLastWriteTime(a.outside() / "team/zz.kelta", (kEpoch + 21) * 1000000000);
      a.cycle();
      EXPECT_EQ(fs::exists(a.inside() / "team/zz"), !waits) << row.way;
      EXPECT_TRUE(told(waits ? "its archive is of another key than its folder" : "An archive of another key"))
          << row.way;
      for (const char* name : {"outside/team/zz.kelta", "a/inside/team/zz"}) fs::remove(folder / name);
      put(a.outside() / "team/.sid", "s", 0);
      a.cycle();
    }
  }
  // Nor where it gets there by a rename, or where a folder is made a share once it was renamed.
  start();
  a.handler().setChangedSharesWait(true);
  put(a.inside() / "mine/secret", "secret", 10);
  a.cycle();
  fs::remove(a.outside() / "team/.sid");
  fs::rename(a.outside() / "private.kelta", a.outside() / "team/zz.kelta");
  fs::rename(a.outside() / "mine", a.outside() / "renamed");
  a.cycle();
  EXPECT_FALSE(fs::exists(a.inside() / "team/zz"));
  put(a.outside() / "renamed/.sid", "s", 0);
  put(a.inside() / "renamed/secret", "edited", 20);
  start();
  a.handler().setChangedSharesWait(true);
  a.cycle();
  EXPECT_EQ(assetOf("renamed/secret.kelta"), "main");
  EXPECT_TRUE(told("renamed was changed: its files were encrypted for main"));
}

TEST_F(ChangedShares, AreToldBeforeTheyAreUsedAndWaitWhereTheHostWantsThat) {
  const struct {
    const char* marker;
    const char* before;  // what it names; empty: there is none
    const char* after;
    const char* share;
  } rows[] = {{"d/.sid", "s", "other", "d"},
              {"d/.sid", "", "other", "d"},
              {"d/e/.sid", "", "other", "d/e"},
              {"d/.sid", "s", "", "d"}};
  int row = 0;
  for (const auto& change : rows) {
    for (const bool waits : {false, true}) {
      const std::string top = "row " + std::to_string(++row) + "/";
      SCOPED_TRACE(top + change.marker);
      const std::string before = *change.before ? change.before : "main";
      const std::string after = *change.after ? change.after : "main";
      const fs::path file = a.inside() / (top + "d/e/x");
      const std::string archive = top + "d/e/x.kelta";
      start();
      a.handler().setChangedSharesWait(waits);
      if (*change.before) put(a.outside() / top / change.marker, change.before, 0);
      put(file, "content", 10);
      a.cycle();
      EXPECT_FALSE(told("ERROR")) << "a new share: " << a.notifications();
      EXPECT_EQ(assetOf(archive), before);

      start();  // it is remembered on the disk
      a.handler().setChangedSharesWait(waits);
      fs::remove(a.outside() / top / change.marker);
      if (*change.after) put(a.outside() / top / change.marker, change.after, 0);
      putArchiveOf(after, top + "d/e/y");
      a.cycle();
      EXPECT_EQ(fs::exists(a.inside() / top / "d/e/y"), !waits);
      put(file, "edited", 20);
      a.cycle();
      EXPECT_TRUE(
          told(top + change.share + " was changed: its files were encrypted for " + before + ", and are for " + after))
          << a.notifications();
      EXPECT_EQ(assetOf(archive), waits ? before : after);
      a.pair().clearNotifications();
      if (waits) {
        EXPECT_EQ(a.cycle(), "failed:x failed:y");
        EXPECT_NE(waiting().find("d/e/x\",\"reason\":\"share-unconfirmed\""), std::string::npos) << waiting();
        a.handler().setFNE(true);
        a.handler().resetStateFNE({});
        EXPECT_TRUE(fs::exists(a.outside() / archive)) << "no name is encrypted for the other asset either";
        a.handler().setFNE(false);
        a.handler().resetStateFNE({});
        EXPECT_FALSE(confirm(top + "d/e", platform::wideOf(fs::path(before)).c_str()));
        EXPECT_TRUE(confirm(top + change.share, platform::wideOf(fs::path(after)).c_str()));
        a.cycle();
      }
      put(file, "edited again", 30);
      a.cycle();
      EXPECT_TRUE(fs::exists(a.inside() / top / "d/e/y"));
      EXPECT_EQ(assetOf(archive), after);
      EXPECT_FALSE(told("was changed")) << "once";
      EXPECT_EQ(waiting(), "{\"waiting\":[]}");
    }
  }
}

TEST_F(ChangedShares, NothingIsEncryptedWhereTheMarkersOfTheTwoSidesDisagree) {
  start();
  put(a.outside() / "d/.sid", "other", 0);
  put(a.inside() / "d/.sid", "s", 0);
  put(a.inside() / "d/x", "content", 10);
  for (const bool first : {true, false}) {
    a.cycle();
    EXPECT_EQ(told("d name two assets, other on the Outside and s on the Inside"), first);
    a.pair().clearNotifications();
  }
  EXPECT_EQ(namesOf(a.outside()), "d/ d/.sid");
  EXPECT_FALSE(confirm("d", L"other"));
  put(a.inside() / "d/.sid", "other", 0);
  a.cycle();
  EXPECT_EQ(assetOf("d/x.kelta"), "other");
}

}  // namespace
}  // namespace test
}  // namespace Kelta
