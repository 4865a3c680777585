// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <boost/property_tree/json_parser.hpp>
#include <sstream>

#include "Content.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "System.h"
#include "TempFolder.h"
#include "VirtualClock.h"
#include "archive/Archive.h"
#include "platform/Files.h"

namespace Kelta {
namespace test {

inline const std::wstring kKey(64, L'7');
inline const std::pair<bool, std::wstring> kFailed(false, L"");

/// A handler with its four folders and one key, its time and its notifications.
class HandlerTest : public testing::Test {
protected:
  HandlerTest() : handler(services()) {
    for (const char* name : {"in", "out", "elsewhere"}) boost::filesystem::create_directory(folder / name);
    handler.setInsideFolder(folder.wide("in"));
    handler.setOutsideFolder(folder.wide("out/"));
    handler.setTempFolder(folder.wide("temp"));
    handler.setQuarFolder(folder.wide("quar"));
    handler.setAssetKey(L"asset-1", kKey);
  }

  EngineServices services() {
    EngineServices given{clock, interruption,
                         [this](const std::wstring& type, const std::wstring& message, const std::wstring&) {
                           notifications.push_back(type + L": " + message);
                         }};
    given.notifyDone = [this](const std::wstring& message) { notifications.push_back(L"SYNC: " + message); };
    return given;
  }
  void write(const std::string& entry, const std::string& text, std::int64_t seconds = 1600000000) {
    boost::filesystem::create_directories((folder / entry).parent_path());
    writeFile(folder / entry, text);
    ASSERT_TRUE(platform::setLastWriteTime(folder / entry, seconds * 1000000000 + 123456700));
  }
  std::string read(const std::string& entry) { return readFile(folder / entry); }
  std::string metadata(const std::string& archive) {
    return archive::readEntry(folder / archive, "__KELASSET_.json", "");
  }
  bool there(const std::string& entry) { return platform::stampOf(folder / entry).kind != platform::Kind::missing; }
  bool isEmpty(const std::string& entry) { return boost::filesystem::is_empty(folder / entry); }
  std::pair<bool, std::wstring> copy(const std::string& from, const std::string& to) {
    const auto result = handler.copyFile(folder / from, folder / to);
    EXPECT_TRUE(isEmpty("temp")) << from;
    return result;
  }
  /// An archive of "in/x" under another handler's key, as another machine would leave it.
  void archiveUnder(const std::wstring& asset, const std::wstring& key, const std::string& content) {
    write("in/x", content);
    handler.clearAssets();
    handler.setAssetKey(asset, key);
    ASSERT_TRUE(copy("in/x", "out/x").first);
    handler.clearAssets();
    boost::filesystem::remove(folder / "in/x");
    notifications.clear();
  }
  boost::property_tree::ptree quarantine() {
    boost::property_tree::ptree list;
    std::istringstream stream(platform::utf8(handler.getQuarantineAsJSON()));
    boost::property_tree::read_json(stream, list);
    return list.get_child("quarantined");
  }

  TempFolder folder;
  RecycleBin bin{folder.path()};
  std::shared_ptr<HookClock> clock = std::make_shared<HookClock>();
  std::shared_ptr<Interruption> interruption = std::make_shared<Interruption>();
  std::vector<std::wstring> notifications;
  CryptoSyncCopyHandler handler;
};

}  // namespace test
}  // namespace Kelta
