// SPDX-License-Identifier: Apache-2.0
// Encrypting and decrypting copies.
#include <regex>

#include "base/JsonText.h"
#include "support/HandlerFixture.h"

using namespace Kelta;
using namespace Kelta::test;
namespace fs = boost::filesystem;
using platform::stampOf;

namespace {

TEST_F(HandlerTest, RoundTripKeepsContentAndTime) {
  const std::string name = awkwardName();
  std::string text(3000000, 'k');
  for (std::size_t i = 0; i < text.size(); i += 7) text[i] = static_cast<char>(i * 31);
  write("in/sub/" + name, text);
  const auto source = stampOf(folder / ("in/sub/" + name));
  for (const int compress : {0, 1}) {
    handler.setCompressionFlag(compress);
    const std::string archive = "out/sub/" + name + ".kelta";
    ASSERT_EQ(copy("in/sub/" + name, "out/sub/" + name), std::make_pair(true, folder.wide(archive)));
    EXPECT_EQ(stampOf(folder / archive).nanoseconds, source.nanoseconds);
    EXPECT_EQ(read(archive).find("kkkk"), std::string::npos);
    EXPECT_EQ(read(archive).size() < text.size(), compress != 0);
    // The mapped and the plain name of the target both work.
    for (const char* target : {"in/new/deep/b.txt", "in/new/deep/b.txt.kelta"})
      ASSERT_EQ(copy(archive, target), std::make_pair(true, folder.wide("in/new/deep/b.txt")));
    EXPECT_TRUE(stampOf(folder / "in/new/deep/b.txt").sameContent(source));
    EXPECT_TRUE(read("in/new/deep/b.txt") == text);
  }
  EXPECT_EQ(notifications[0], L"SYNC: Encrypted " + jsonEscaped(platform::wideOf(pathFrom(name))) + L" successfully");
  EXPECT_EQ(notifications[1], L"SYNC: Decrypted b.txt successfully");
}

TEST_F(HandlerTest, ArchivesCarryTheirOwnPassword) {
  // 16 bytes of vector and 64 hex digits padded to 80, two digits a byte.
  const std::regex form("\\{\"assets\":\\[\\{\"asset-1\":\"[0-9a-f]{192}\"\\}\\]\\}");
  write("in/a", "same");
  std::vector<std::string> passwords;
  for (const char* name : {"out/a", "out/b"}) {
    ASSERT_TRUE(copy("in/a", name).first);
    const std::string archive = name + std::string(".kelta");
    EXPECT_TRUE(std::regex_match(metadata(archive), form)) << metadata(archive);
    boost::property_tree::ptree meta;
    ASSERT_TRUE(handler.getZipMetaJSON(folder / archive, meta));
    for (const auto& password : handler.getPasswordFromMeta(meta)) passwords.push_back(password);
  }
  ASSERT_EQ(passwords.size(), 2U);
  EXPECT_TRUE(std::regex_match(passwords[0], std::regex("[0-9a-f]{64}")));
  EXPECT_NE(passwords[0], passwords[1]);
  EXPECT_NE(metadata("out/a.kelta"), metadata("out/b.kelta"));
}

TEST_F(HandlerTest, RightsAreOrdinaryAndAReplacedFilesStay) {
  write("in/x", "one");
  const fs::perms ordinary = fs::status(folder / "in/x").permissions();
  ASSERT_TRUE(copy("in/x", "out/x").first);
  ASSERT_TRUE(copy("out/x.kelta", "in/new").first);
  EXPECT_EQ(fs::status(folder / "in/new").permissions(), ordinary);
  fs::permissions(folder / "in/x", fs::owner_read | fs::owner_write | fs::owner_exe);
  const fs::perms special = fs::status(folder / "in/x").permissions();
  ASSERT_TRUE(copy("out/x.kelta", "in/x").first);
  EXPECT_EQ(fs::status(folder / "in/x").permissions(), special);
}

TEST_F(HandlerTest, ChangesDuringACopyAreNotCarriedNorOverwritten) {
  write("in/x", "first");
  const auto failsWhen = [&](const char* changed, const char* content, int second, const char* from, const char* to) {
    clock->atNextLook([=] { write(changed, content, 1600000000 + second); });
    EXPECT_EQ(copy(from, to), kFailed) << content;
    EXPECT_EQ(read(changed), content);
  };
  failsWhen("in/x", "other", 1, "in/x", "out/x");
  EXPECT_TRUE(isEmpty("out"));
  write("out/x.kelta", "somebody's");
  failsWhen("out/x.kelta", "newer", 9, "in/x", "out/x");
  fs::remove(folder / "out/x.kelta");
  failsWhen("out/x.kelta", "appeared", 0, "in/x", "out/x");
  ASSERT_TRUE(copy("in/x", "out/x").first);
  failsWhen("in/x", "typed meanwhile", 20, "out/x.kelta", "in/x");
  clock->atNextLook([&] { fs::last_write_time(folder / "out/x.kelta", 1700000000); });
  EXPECT_EQ(copy("out/x.kelta", "in/y"), kFailed);
  EXPECT_FALSE(there("in/y"));
}

TEST_F(HandlerTest, TheTempFolderMayLieOnAnotherVolume) {
  const fs::path volume = fs::is_directory("Z:/dev/shm") ? "Z:/dev/shm" : "/dev/shm";  // the first one on Wine
  if (!fs::is_directory(volume)) GTEST_SKIP() << "no second volume to use";
  const fs::path away = volume / folder.path().filename();
  handler.setTempFolder(platform::wideOf(away));
  write("in/x", std::string(2500000, 'v'));
  EXPECT_TRUE(copy("in/x", "out/sub/x").first);
  EXPECT_TRUE(copy("out/sub/x.kelta", "in/y").first);
  EXPECT_TRUE(stampOf(folder / "in/y").sameContent(stampOf(folder / "in/x")));
  EXPECT_TRUE(read("in/x") == read("in/y"));
  EXPECT_EQ(fs::status(folder / "in/y").permissions(), fs::status(folder / "in/x").permissions());
  EXPECT_TRUE(fs::is_empty(away));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "out/sub"), fs::directory_iterator()), 1);
  fs::remove_all(away);
}

TEST_F(HandlerTest, NeverLeavesThePair) {
  write("in/sub/x", "secret");
  EXPECT_EQ(copy("in/sub/x", "out/a/../../elsewhere/x"), kFailed);
  EXPECT_EQ(copy("in/sub/x", "elsewhere/x"), kFailed);
  EXPECT_FALSE(handler.copyDir(folder / "in/sub", folder / "elsewhere/new"));
  EXPECT_THROW(handler.moveInside(folder / "in/sub/x", folder.wide("elsewhere/x")), fs::filesystem_error);
  EXPECT_TRUE(isEmpty("elsewhere"));

  ASSERT_TRUE(copy("in/sub/x", "out/x").first);
  fs::create_directories(folder / "in/folder");
  EXPECT_EQ(copy("out/x.kelta", "in/folder"), kFailed);
  EXPECT_TRUE(handler.copyDir(folder / "in/folder", folder / "out/new/folder"));
  EXPECT_TRUE(fs::is_directory(folder / "out/new/folder"));
}

TEST_F(HandlerTest, FollowsNoLinkEitherWay) {
  if (!makeLink(folder / "elsewhere", folder / "out/sub")) GTEST_SKIP() << "no symbolic links here";
  write("in/sub/x", "secret");
  EXPECT_EQ(copy("in/sub/x", "out/sub/x"), kFailed);
  EXPECT_EQ(copy("in/sub/x", "out/sub/deeper/x"), kFailed);
  EXPECT_FALSE(handler.copyDir(folder / "in/sub", folder / "out/sub/new"));

  ASSERT_TRUE(copy("in/sub/x", "out/x").first);
  ASSERT_TRUE(makeLink(folder / "elsewhere", folder / "in/linked"));
  EXPECT_EQ(copy("out/x.kelta", "in/linked/x"), kFailed);
  EXPECT_THROW(handler.moveInside(folder / "in/sub/x", folder.wide("in/linked/x")), fs::filesystem_error);
  EXPECT_TRUE(isEmpty("elsewhere"));

  write("elsewhere/private", "not of the pair");
  EXPECT_EQ(copy("in/linked/private", "out/private"), kFailed);
  ASSERT_TRUE(makeLink(folder / "elsewhere/private", folder / "in/link"));
  EXPECT_EQ(copy("in/link", "out/link"), kFailed);
  EXPECT_EQ(copy("out/x.kelta", "in/link"), kFailed);
  EXPECT_EQ(read("elsewhere/private"), "not of the pair");
}

TEST_F(HandlerTest, AMissingRootIsNeverMade) {
  write("in/sub/x", "text");
  fs::remove_all(folder / "out");
  EXPECT_EQ(copy("in/sub/x", "out/sub/x"), kFailed);
  EXPECT_FALSE(handler.copyDir(folder / "in/sub", folder / "out/sub"));
  // What cannot be seen is not gone.
  EXPECT_EQ(handler.doDelete(folder.wide("in/gone")), std::make_pair(true, false));
  EXPECT_EQ(handler.doDelete(folder.wide("out/sub/x.kelta")), std::make_pair(false, false));
  EXPECT_TRUE(there("in/sub/x") && !there("out"));
}

TEST_F(HandlerTest, RefusesNamesThatCannotComeBack) {
  write("in/x.kelta", "an archive put there by hand");
  EXPECT_EQ(copy("in/x.kelta", "out/x.kelta"), kFailed);
  EXPECT_TRUE(isEmpty("out"));
  write("in/x", "the real x");
  ASSERT_TRUE(copy("in/x", "out/x").first);
  for (const char* name : {".rid", "x.kelta", "desktop.ini", ".sid"}) {
    fs::copy_file(folder / "out/x.kelta", folder / ("out/" + std::string(name) + ".kelta"));
    EXPECT_EQ(copy("out/" + std::string(name) + ".kelta", "in/" + std::string(name)), kFailed) << name;
  }
  EXPECT_FALSE(there("in/.rid"));
  EXPECT_EQ(read("in/x"), "the real x");
  EXPECT_EQ(copy("in/nothing", "out/nothing"), kFailed);
}

TEST_F(HandlerTest, QuarantinesOverlongPathsOnce) {
  write("in/x", "text");
  const std::size_t room = 260 - folder.wide("out/").size() - std::string(".kelta").size();
  // With its dot the name looks like no encrypted one, whatever its length.
  EXPECT_TRUE(copy("in/x", "out/n." + std::string(room - 2, 'n')).first);
  notifications.clear();
  const std::string tooLong = "out/n." + std::string(room - 1, 'n');
  for (int i = 0; i < 2; ++i) EXPECT_EQ(copy("in/x", tooLong), kFailed);
  EXPECT_FALSE(there(tooLong + ".kelta"));
  ASSERT_EQ(notifications.size(), 1U);
  EXPECT_EQ(notifications[0], L"SYNC: Quarantine, path too long: x") << "the user's file, not the archive";
  ASSERT_EQ(quarantine().size(), 1U);
  const auto record = quarantine().front().second;
  EXPECT_EQ(record.get<std::string>("errorid") + record.get<std::string>("message"), "path-issuePath too long");
  EXPECT_EQ(record.get<std::string>("quarantine_path"), platform::utf8(folder / "in/x"));
  EXPECT_TRUE(copy("in/x", "out/x").first);  // a copy that succeeds heals
  EXPECT_EQ(quarantine().size(), 0U);
}

TEST_F(HandlerTest, WithoutAKeyGivesUpAfterNinetySeconds) {
  archiveUnder(L"other", kKey, "text");
  write("in/mine", "text");
  EXPECT_EQ(copy("in/mine", "out/mine"), kFailed);
  EXPECT_EQ(copy("out/x.kelta", "in/x"), kFailed);
  clock->advance(90000);
  EXPECT_EQ(copy("out/x.kelta", "in/x"), kFailed);
  EXPECT_EQ(quarantine().size(), 0U);
  clock->advance(1000);
  EXPECT_EQ(copy("out/x.kelta", "in/x"), std::make_pair(true, std::wstring()));
  EXPECT_FALSE(there("in/x"));
  ASSERT_EQ(quarantine().size(), 1U);
  EXPECT_EQ(quarantine().front().second.get<std::string>("errorid"), "no-key");
  EXPECT_EQ(notifications, std::vector<std::wstring>{L"SYNC: Quarantine for x"});

  handler.registerKeyNotFound([](const std::wstring& asset) { return asset == L"other" ? kKey : std::wstring(); });
  EXPECT_EQ(copy("out/x.kelta", "in/x").second, folder.wide("in/x"));
  EXPECT_EQ(read("in/x"), "text");
  EXPECT_EQ(quarantine().size(), 0U);
  // The time of the first failure went with the success: a new loss of the key starts afresh.
  handler.clearAssets();
  handler.registerKeyNotFound(nullptr);
  EXPECT_EQ(copy("out/x.kelta", "in/x"), kFailed);
}

TEST_F(HandlerTest, AWrongKeyNeverYieldsAFile) {
  archiveUnder(L"asset-1", kKey, "text");
  int asked = 0;
  handler.registerKeyNotFound([&](const std::wstring&) { return ++asked, std::wstring(); });
  handler.setAssetKey(L"asset-1", L"a guess");
  EXPECT_EQ(copy("out/x.kelta", "in/x"), kFailed);
  EXPECT_EQ(asked, 1);
  clock->advance(91000);
  EXPECT_EQ(copy("out/x.kelta", "in/x"), std::make_pair(true, std::wstring()));
  EXPECT_TRUE(isEmpty("in"));
  handler.registerKeyNotFound([&](const std::wstring& asset) {
    handler.setAssetKey(asset, kKey);  // from within, as hosts do
    return std::wstring();
  });
  EXPECT_TRUE(copy("out/x.kelta", "in/x").first);
}

TEST_F(HandlerTest, ForeignMetadataLeavesNothing) {
  write("in/x", "text");
  ASSERT_TRUE(copy("in/x", "out/x").first);
  for (const std::string& text : {std::string("{\"assets\":[{\"asset-1\":\"zz\",\"b\\\"\\u0009\":\"00\"},3,[[1]]]}"),
                                  std::string("{\"assets\":"), std::string("{}"), std::string(60000, '[')}) {
    write("__KELASSET_.json", text);
    archive::updateMetadata(folder / "out/x.kelta", folder / "__KELASSET_.json");
    EXPECT_EQ(copy("out/x.kelta", "in/z"), kFailed) << text.substr(0, 60);
  }
  EXPECT_FALSE(there("in/z"));
}

TEST_F(HandlerTest, AnInterruptionLeavesNothingHalfWritten) {
  write("in/x", std::string(2000000, 'i'));
  const auto interrupted = [this](const char* from, const char* to) {
    interruption->begin();
    clock->atNextLook([this] { interruption->request(); });
    EXPECT_THROW(handler.copyFile(folder / from, folder / to), boost::thread_interrupted);
    interruption->end();
    EXPECT_TRUE(isEmpty("temp"));
  };
  interrupted("in/x", "out/x");
  EXPECT_TRUE(isEmpty("out"));
  ASSERT_TRUE(copy("in/x", "out/x").first);
  interrupted("out/x.kelta", "in/y");
  EXPECT_FALSE(there("in/y"));
}

}  // namespace
