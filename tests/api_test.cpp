// SPDX-License-Identifier: Apache-2.0
// The engine's exports as a host calls them.
#include <gtest/gtest.h>

#include <boost/thread/thread.hpp>
#include <regex>
#include <vector>

#include "base/Log.h"
#include "kelsyncpair/kelsyncpair.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

class Api : public ::testing::Test {
protected:
  Api() {
    kelsync_init(&h);
    for (const char* name : {"inside", "outside", "log"}) fs::create_directory(folder / name);
  }
  ~Api() override { kelsync_delete(h); }

  void configure() {
    kelsync_set_source_folder(h, folder.wide("inside").c_str());
    kelsync_set_dest_folder(h, folder.wide("outside").c_str());
    kelsync_set_temp_folder(h, folder.wide("temp").c_str());
    kelsync_set_state_path(h, folder.wide("state").c_str());
    kelsync_set_assetkey(h, L"main", testKey());
    kelsync_init_state(h);
  }
  /// Steps instead of whole cycles, whose pauses are real here.
  void scanAndResolve(const std::vector<std::string>& folders) {
    kelsync_folder_list* list = nullptr;
    kelsync_vw_new(&list);
    for (const std::string& name : folders) kelsync_vw_add(list, folder.wide(name).c_str());
    kelsync_sub_scan_resolve(h, list);
  }
  std::string logIn(const char* name) { return contentOf(folder / name / "syncpair.log"); }
  std::string notifications() {
    wchar_t* text = nullptr;
    const std::uint32_t length = kelsync_get_notifications_JSON(h, &text);
    const std::wstring copy(text);
    freeme(text);
    EXPECT_EQ(copy.size(), length);
    return platform::utf8(copy);
  }

  TempFolder folder;
  RecycleBin bin{folder.path()};
  kelsync_pair* h = nullptr;
};

TEST_F(Api, NullArgumentsAreIgnored) {
  EXPECT_EQ(kelsync_init(nullptr), nullptr);
  kelsync_delete(nullptr);
  for (auto* call : {kelsync_interrupt, kelsync_clear_assets, kelsync_init_state, kelsync_sync_cycle,
                     kelsync_scan_src_changes, kelsync_scan_dest_changes, kelsync_sync_changes, kelsync_write_state,
                     kelsync_sync_end, kelsync_default_sleep, kelsync_sub_resolve, kelsync_clear_notifications}) {
    call(nullptr);
  }
  for (auto* call :
       {kelsync_set_source_folder, kelsync_set_dest_folder, kelsync_set_temp_folder, kelsync_set_state_path,
        kelsync_set_log_folder, kelsync_remove_assetkey, kelsync_quarantine_clear_rec}) {
    call(nullptr, L"x");
    call(h, nullptr);
  }
  kelsync_set_assetkey(h, nullptr, L"k");
  kelsync_set_assetkey(h, L"id", nullptr);
  kelsync_set_compression_flag(nullptr, 1);
  kelsync_set_pace(nullptr, 0);
  kelsync_set_FNE(nullptr, 1);
  kelsync_cb_register_keynotfound(nullptr, nullptr);
  kelsync_cb_register_progress(nullptr, nullptr, nullptr);
  kelsync_vw_new(nullptr);
  kelsync_vw_add(nullptr, L"x");
  kelsync_sub_scan(nullptr, nullptr);
  kelsync_sub_scan(h, nullptr);
  EXPECT_EQ(kelsync_ok(nullptr) + kelsync_default_sleep_tell(nullptr) + kelsync_quarantine_get_last_update(nullptr), 0);
  EXPECT_EQ(kelsync_state_insert_record(h, nullptr) + kelsync_state_remove_record(nullptr, L"x"), 0);
  wchar_t* text = nullptr;
  EXPECT_EQ(kelsync_get_notifications_JSON(nullptr, &text), 0u);
  EXPECT_EQ(kelsync_quarantine_get_JSON(h, nullptr), 0u);
  EXPECT_EQ(kelsync_ok(h), 1);
}

TEST_F(Api, NotificationsAreHandedOutWholeAndKeptUntilCleared) {
  EXPECT_EQ(notifications(), "{\"notifications\":[]}");
  configure();
  fs::remove_all(folder / "outside");
  kelsync_scan_src_changes(h);
  kelsync_scan_dest_changes(h);
  EXPECT_EQ(kelsync_ok(h), 0);
  const std::string once = "{\"notifications\":[{\"type\":\"ERROR\",\"message\":\"One or more pair folder missing\"}]}";
  EXPECT_EQ(notifications(), once);
  EXPECT_EQ(notifications(), once);
  kelsync_clear_notifications(h);
  EXPECT_EQ(notifications(), "{\"notifications\":[]}");
  SyncPair pair;
  pair.notify(L"SYNC", L"one", L"42");
  for (int i = 0; i < 2; ++i) {
    pair.notify(L"SYNC", L"failed");
    pair.notifyDone(L"done");
  }
  EXPECT_EQ(platform::utf8(pair.notificationsAsJSON()),
            "{\"notifications\":[{\"type\":\"SYNC\",\"message\":\"one\",\"more\":42},"
            "{\"type\":\"SYNC\",\"message\":\"failed\"},{\"type\":\"SYNC\",\"message\":\"done\"},"
            "{\"type\":\"SYNC\",\"message\":\"done\"}]}");
}

TEST_F(Api, AHostDrivesAPairThroughFolderLists) {
  configure();
  put(folder / "inside/dir/x", "content", 10);
  kelsync_set_FNE(h, 1);
  std::vector<std::string> events;
  kelsync_cb_register_progress(
      h,
      [](void* context, const wchar_t* operation, const wchar_t* path, uint64_t done, uint64_t total) {
        static_cast<std::vector<std::string>*>(context)->push_back(
            platform::utf8(std::wstring(operation)) + " " + platform::utf8(platform::pathOf(path).filename()) + " " +
            std::to_string(done) + "/" + std::to_string(total));
      },
      &events);
  kelsync_folder_list* list = nullptr;
  kelsync_vw_new(&list);
  kelsync_vw_add(list, folder.wide("inside").c_str());
  kelsync_sub_scan_updates(h, list, 0);
  kelsync_sub_scan_deletes(h, list, 1);
  kelsync_sub_resolve(h);
  EXPECT_EQ(events, (std::vector<std::string>{"folder dir 1/2", "encrypt x 2/2"}));
  const std::string told = notifications();
  EXPECT_NE(told.find("Encrypted x successfully"), std::string::npos) << told;
  EXPECT_NE(contentOf(folder / "state/Kelta_sync_state_0.txt").find("/dir/x\t"), std::string::npos);
  EXPECT_EQ(kelsync_state_remove_record(h, folder.wide("inside/dir/x").c_str()), 1);
}

TEST_F(Api, AKeyMayArriveThroughTheCallback) {
  Device other(folder / "other", folder / "outside");
  for (const char* name : {"x", "y"}) put(other.inside() / name, "content", 10);
  other.cycle();
  configure();
  kelsync_clear_assets(h);
  static kelsync_pair* engine;
  static std::string asked;
  engine = h;
  asked.clear();
  kelsync_cb_register_keynotfound(h, [](const wchar_t* id) -> const wchar_t* {
    asked += platform::utf8(std::wstring(id)) + " ";
    if (asked.size() < 6) return nullptr;
    kelsync_set_assetkey(engine, L"unrelated", L"some other key");
    return testKey();
  });
  for (const char* const expected : {"", "x=content@10 y=content@10"}) {
    scanAndResolve({"outside"});
    EXPECT_EQ(treeOf(folder / "inside"), expected);
  }
  EXPECT_EQ(asked, "main main ") << "once an operation, however many archives there are";
}

TEST_F(Api, KeysAndSingleFilesThroughTheExports) {
  EXPECT_EQ(kelsync_change_assetkey(nullptr, L"main", L"x") + kelsync_change_assetkey(h, nullptr, L"x") +
                kelsync_change_assetkey(h, L"main", nullptr) + kelsync_verify_archives(nullptr) +
                single_encrypt(h, nullptr, L"x") + single_decrypt(h, L"x", L"") + kelsync_remove_all_files(h, 2) +
                kelsync_remove_all_files(nullptr, 0),
            0);
  configure();
  put(folder / "x", "content", 10);
  const std::wstring archive = folder.wide("outside/x.kelta");
  EXPECT_EQ(single_encrypt(h, folder.wide("x").c_str(), archive.c_str()), 1);
  EXPECT_EQ(kelsync_change_assetkey(h, L"main", L"another key"), 1);
  EXPECT_EQ(kelsync_verify_archives(h), 1);
  EXPECT_EQ(single_decrypt(h, archive.c_str(), folder.wide("y").c_str()), 1);
  EXPECT_EQ(contentOf(folder / "y"), "content");
  kelsync_set_assetkey(h, L"main", testKey());
  EXPECT_EQ(kelsync_verify_archives(h), 0);
  EXPECT_EQ(kelsync_remove_all_files(h, 1), 1);
  EXPECT_TRUE(fs::exists(folder / "outside/x.kelta")) << "known to no state";
  kelsync_pair* fresh = nullptr;
  kelsync_init(&fresh);
  kelsync_set_source_folder(fresh, folder.wide("inside").c_str());
  kelsync_set_dest_folder(fresh, folder.wide("outside").c_str());
  kelsync_set_state_path(fresh, folder.wide("state").c_str());
  put(folder / "inside/x", "content", 10);
  const std::string state = contentOf(folder / "state/Kelta_sync_state_0.txt");
  EXPECT_EQ(kelsync_remove_all_files(fresh, 0) + kelsync_state_insert_record(fresh, folder.wide("inside/x").c_str()) +
                kelsync_state_remove_record(fresh, folder.wide("inside/x").c_str()),
            0)
      << "no state was loaded";
  EXPECT_EQ(contentOf(folder / "state/Kelta_sync_state_0.txt"), state);
  kelsync_delete(fresh);
}

TEST_F(Api, AChangedShareWaitsForTheHost) {
  configure();
  kelsync_set_assetkey(h, L"other", L"another key");
  kelsync_set_share_policy(nullptr, 1);
  kelsync_set_share_policy(h, 1);
  put(folder / "inside/x", "content", 10);
  scanAndResolve({"inside"});
  put(folder / "outside/.sid", "other", 0);
  put(folder / "inside/x", "edited", 20);
  scanAndResolve({"inside"});
  const auto waiting = [&] {
    wchar_t* text = nullptr;
    kelsync_get_waiting_JSON(h, &text);
    const std::string json = platform::utf8(std::wstring(text));
    freeme(text);
    return json;
  };
  EXPECT_NE(waiting().find("/inside/x\",\"reason\":\"share-unconfirmed\""), std::string::npos) << waiting();
  const std::wstring share = folder.wide("outside");
  EXPECT_EQ(kelsync_share_confirm(nullptr, share.c_str(), L"other") + kelsync_share_confirm(h, nullptr, L"other") +
                kelsync_share_confirm(h, share.c_str(), nullptr) + kelsync_share_confirm(h, share.c_str(), L"main") +
                kelsync_share_confirm(h, folder.wide("log").c_str(), L"other"),
            0);
  EXPECT_EQ(kelsync_share_confirm(h, share.c_str(), L"other"), 1);
  EXPECT_EQ(waiting(), "{\"waiting\":[]}");
}

TEST_F(Api, NothingStartsWithFoldersThatCannotBeUsed) {
  const fs::path before = fs::current_path();
  put(folder / "inside/x", "content", 10);
  fs::current_path(folder.path());
  const struct {
    std::wstring state, temp;
    const char* message;
  } table[] = {{L"", folder.wide("temp"), "No folder for the state"},
               {folder.wide("outside/state"), folder.wide("temp"), "lies on the Outside"},
               {folder.wide("state"), folder.wide("outside//temp"), "lies on the Outside"}};
  for (const auto& row : table) {
    kelsync_pair* const last = h;
    kelsync_init(&h);
    kelsync_delete(last);
    kelsync_set_source_folder(h, folder.wide("inside").c_str());
    kelsync_set_dest_folder(h, folder.wide("outside").c_str());
    kelsync_set_temp_folder(h, row.temp.c_str());
    kelsync_set_state_path(h, row.state.c_str());
    kelsync_set_assetkey(h, L"main", testKey());
    kelsync_init_state(h);
    EXPECT_EQ(kelsync_ok(h), 0);
    EXPECT_NE(notifications().find(row.message), std::string::npos) << notifications();
    scanAndResolve({"inside"});
    EXPECT_FALSE(fs::exists(folder / "outside/x.kelta"));
    EXPECT_FALSE(fs::exists(folder / "Kelta_sync_state_0.txt") || fs::exists("/quar"));
  }
  fs::current_path(before);
}

TEST_F(Api, PathsAreTakenInAnySpellingOrRefused) {
  configure();
  const auto mapped = [&](decltype(fn_encrypt)* map, const std::wstring& path) {
    wchar_t* text = nullptr;
    map(h, path.c_str(), &text);
    const std::wstring name(text);
    freeme(text);
    return name;
  };
  const std::wstring name = mapped(fn_encrypt, folder.wide("inside/dir/x"));
  EXPECT_EQ(mapped(fn_encrypt, L"x"), name);
  for (const char* path : {"inside//dir//x", "inside/./x", "inside/dir/../x", "inside//x/"})
    EXPECT_EQ(mapped(fn_encrypt, folder.wide(path)), name) << path;
  for (const char* path : {"outside//", "outside/.//dir/"})
    EXPECT_EQ(mapped(fn_decrypt, folder.wide(path) + name), L"x");
  for (const wchar_t* path : {L"", L".", L"..", L"/../x", L"\\"}) EXPECT_EQ(mapped(fn_encrypt, path), L"");
  for (const wchar_t* path : {L"..kelta", L"...kelta"}) EXPECT_EQ(mapped(fn_decrypt, path), L"");

  put(folder / "inside/x", "content", 10);
  const auto encrypt = [&](const char* src, const char* dst) {
    return single_encrypt(h, folder.wide(src).c_str(), folder.wide(dst).c_str());
  };
  EXPECT_EQ(encrypt("inside//x", "outside//dir//./x.kelta"), 1);
  EXPECT_EQ(encrypt("inside/x", "outside/../outside/y.kelta"), 1);
  EXPECT_EQ(encrypt("inside/x", "outside/z.kelta/") + encrypt("inside/x", "inside//z.kelta"), 0);
  EXPECT_EQ(namesOf(folder / "outside"), "dir/ dir/x.kelta y.kelta");
}

TEST_F(Api, AnInterruptionFromAnotherThreadEndsASleep) {
  kelsync_interrupt(h);  // nothing runs: no effect on the next command
  ASSERT_EQ(kelsync_default_sleep_tell(h), 10);
  boost::thread host([this] {
    const auto start = boost::chrono::steady_clock::now();
    kelsync_default_sleep(h);
    EXPECT_LT(boost::chrono::steady_clock::now() - start, boost::chrono::seconds(9));
  });
  while (!host.try_join_for(boost::chrono::milliseconds(5))) kelsync_interrupt(h);
}

TEST_F(Api, EnginesOnSeveralThreadsDoNotDisturbEachOther) {
  std::vector<std::unique_ptr<Device>> devices;
  for (int i = 0; i < 3; ++i) {
    const std::string name = "device" + std::to_string(i);
    devices.push_back(std::make_unique<Device>(folder / name, folder / (name + "-outside")));
    for (int f = 0; f < 20; ++f) put(devices.back()->inside() / std::to_string(f), std::string(9999, 'x'), f + 1);
  }
  boost::thread_group threads;
  for (auto& device : devices) threads.create_thread([&device] { device->cycle(); });
  threads.join_all();
  for (auto& device : devices) EXPECT_EQ(device->cycle(), "");
}

TEST_F(Api, TheLogFollowsItsFolderAndItsProperties) {
  const auto shownWhenSet = [&](const char* name) {
    ::testing::internal::CaptureStdout();
    kelsync_set_log_folder(h, folder.wide(name).c_str());
    return ::testing::internal::GetCapturedStdout();
  };
  shownWhenSet("none");
  EXPECT_FALSE(fs::exists(folder / "none"));
  EXPECT_EQ(shownWhenSet("log"), "3\n");
  kelsync_set_state_path(h, folder.wide("state").c_str());
  const std::string info = logIn("log");
  EXPECT_NE(info.find(") setStateFilePaths() "), std::string::npos) << info;
  EXPECT_NE(info.find("INFO "), std::string::npos) << info;
  EXPECT_EQ(info.find("DEBUG"), std::string::npos);

  put(folder / "properties/log.properties", "log4cplus.rootLogger=TRACE\n", 0);
  EXPECT_EQ(shownWhenSet("properties"), "");
  kelsync_set_state_path(h, (folder.wide("state") + L"/" + std::wstring(5000, L'\x20AC')).c_str());
  std::wstring whole;
  EXPECT_TRUE(platform::wideFromUtf8(logIn("properties"), whole)) << "an over-long line was cut within a character";
  EXPECT_EQ(logIn("log"), info);

  fs::create_directories(folder / "refused/syncpair.log");
  EXPECT_EQ(shownWhenSet("refused"), "Log::init() Exception on set appender.\n");
  kelsync_set_state_path(h, (folder.wide("state") + L"/a\nERROR b\x1b[31m\x2028").c_str());
  EXPECT_NE(logIn("properties").find("/a\\nERROR b\\u{1b}[31m\\u{2028}/Kelta_sync_state_0.txt"), std::string::npos)
      << "names are escaped, and the log goes where it went before";
  log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
}

TEST_F(Api, TheLogTellsWhatWasDoneAndNoSecret) {
  Device other(folder / "other", folder / "outside");
  for (const char* name : {"y", "z"}) put(other.inside() / name, "content", 10);
  other.cycle();
  put(folder / "log/log.properties", "log4cplus.rootLogger=TRACE\n", 0);
  kelsync_set_log_folder(h, folder.wide("log").c_str());
  configure();
  kelsync_set_assetkey(h, L"second", L"correct horse");
  put(folder / "inside/x", "content", 10);
  scanAndResolve({"inside", "outside"});
  fs::remove(folder / "inside/z");
  scanAndResolve({"inside"});
  kelsync_scan_src_changes(h);
  kelsync_pair* const engine = h;
  h = nullptr;
  kelsync_delete(engine);
  log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);

  const std::string log = std::regex_replace(logIn("log"), std::regex("\r"), "");
  for (const char* line : {"assetid = main", " got\n\t'asset'=main\n\t", "EVP final ok ? true"})
    EXPECT_NE(log.find(line), std::string::npos) << "not at the finest level, or not as it is made: " << line;
  // Whichever function writes it, a line is of the method whose step it is.
  for (const char* line :
       {"scanForUpdates() [subset scan] ADD: ", "scanForDeletes() [subset scan] DELETE: ", "scanSrcChanges() srcSync",
        "scanForUpdates() tmpap = ", "scanForUpdates() stateList = ", "scanForDeletes() stateList (",
        "scanForDeletes() syncList.count(relPath) 0",
        "scanForUpdatesRecurse() SAME: ", "scanForDeletes() checking: ", "resolveSync() copied successfully? true",
        "resolveSync() deleted successfully? true true", "doCopy() srcFile = ", "copyFile() copy [",
        "copyEncrypt() destActual = ", "copyDecrypt() destActual = ", "doDelete() delpath: ", "moveInside() pardir = ",
        "getPasswordFromMeta() cipherbuf len=", "copyDecrypt() removing all at "})
    EXPECT_NE(log.find(std::string(") ") + line), std::string::npos) << line;
  EXPECT_EQ(log.find(") operator()"), std::string::npos);
  EXPECT_EQ(log.find("correct horse"), std::string::npos);
  EXPECT_FALSE(std::regex_search(log, std::regex("[0-9a-fA-F]{64}"))) << "a key, a password or its cipher";
  EXPECT_EQ(log.find(" encrypt\t"), std::string::npos);
  const std::string activity = contentOf(folder / "log/activity.log");
  for (const char* line : {"encrypt\t.*/outside/x\\.kelta", "decrypt\t.*/inside/[yz]", "delete\t.*/outside/z\\.kelta"})
    EXPECT_TRUE(
        std::regex_search(activity, std::regex("\\d{4}-\\d\\d-\\d\\dT[\\d:]+Z\t" + std::string(line) + "\r?\n")))
        << line << activity;
}

}  // namespace
}  // namespace test
}  // namespace Kelta
