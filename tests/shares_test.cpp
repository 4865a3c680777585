// SPDX-License-Identifier: Apache-2.0
// Folders with a key of their own inside one pair.
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

}  // namespace
}  // namespace test
}  // namespace Kelta
