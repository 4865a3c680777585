// SPDX-License-Identifier: Apache-2.0
#include "watcher/Watcher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <random>

#include "base/GenericPath.h"
#include "kelsyncpair/kelsyncpair.h"
#include "support/Device.h"
#include "watcher/Filter.h"

namespace Kelta {
namespace test {
namespace {

using Paths = std::set<std::wstring>;

TEST(WatchFilter, Matches) {
  const bool caseMatters = !platform::samePath(L"a", L"A");
  const struct {
    const wchar_t* filter;
    const wchar_t* path;
    bool matches;
  } rows[] = {
      {L"", L"/a", false},           {L"/a", L"/a", true},           {L"/a", L"/a/b/c", true},
      {L"/a", L"/ab", false},        {L"/a/", L"/a/b", true},        {L"\\a\\b", L"/a/b/c", true},
      {L"/a/b", L"/a", false},       {L"/A", L"/a/b", !caseMatters}, {L"/", L"/a", true},
      {L"*", L"/a/b", true},         {L"*.txt", L"/a/b.txt", true},  {L"*.TXT", L"/a/b.txt", !caseMatters},
      {L"/a/*.txt", L"/a/b", false}, {L"/a/?", L"/a/b", true},       {L"/a/?", L"/a/bc", false},
      {L"/a*c*e", L"/abcbce", true}, {L"/a*c*e", L"/abcbc", false},  {L"/a/**", L"/a/", true},
      {L"/a/?", L"/a/", false},      {L"\\a\\*", L"/a/b", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(filterMatches(row.filter, row.path), row.matches) << row.filter << L" " << row.path;
  }
}

TEST(ChangeSet, GathersAndCollapses) {
  ChangeSet changes(4);
  for (const auto* path : {L"/r/b/x", L"/r/a", L"/r/b/x", L"/r/b/y"}) changes.add(L"/r", path);
  EXPECT_EQ(changes.paths(), (Paths{L"/r/a", L"/r/b/x", L"/r/b/y"}));
  EXPECT_EQ(changes.folders(), (Paths{L"/r", L"/r/b"}));
  changes.add(L"/s", L"/s/z");
  changes.add(L"/r", L"/r/c");  // too many
  changes.add(L"/r", L"/r/d");
  EXPECT_EQ(changes.paths(), (Paths{L"/r", L"/s/z"}));
  EXPECT_EQ(changes.folders(), (Paths{L"/r", L"/s"}));
  ChangeSet later;
  later.add(L"/r", L"/r/e");
  later.merge(changes);
  EXPECT_EQ(later.paths(), (Paths{L"/r", L"/s/z"}));
}

Paths called;  // by the callback, which the watcher's mutex guards
std::mutex calledMutex;

void KELSYNC_CALL note(const wchar_t* path) {
  const std::lock_guard<std::mutex> lock(calledMutex);
  called.insert(path);
}

/// A watcher of a folder, with what it told in generic form relative to the folder's parent: "w/a w/b/c".
class WatcherTest : public testing::Test {
protected:
  WatcherTest() {
    fs::create_directories(root() / "old/deep");
    kelsync_fw_init(&handle);
    called.clear();
  }
  ~WatcherTest() override { kelsync_fw_delete(handle); }

  fs::path root() const { return folder / "w"; }
  static std::wstring wide(const fs::path& path) { return platform::wideOf(path); }
  void watch(const std::wstring& filter) {
    kelsync_fw_add_filter(handle, filter.c_str());
    kelsync_fw_startwatch(handle);
  }
  void collect(Paths& told) const {
    kelsync_folder_list* list = nullptr;
    kelsync_fw_get_changes(handle, &list);
    for (std::uint32_t i = 0; i < kelsync_vw_count(list); ++i) told.insert(relative(kelsync_vw_get(list, i)));
    kelsync_vw_delete(list);
  }
  std::wstring relative(const std::wstring& path) const {
    const fs::path generic = platform::pathOf(genericForm(path));
    return wide(generic.lexically_relative(folder.path()).generic_path());
  }
  /// Waits until all of these were told; what was told in the end.
  Paths toldWith(const Paths& expected) {
    for (int i = 0; i < 1000; ++i) {
      collect(told_);
      if (std::includes(told_.begin(), told_.end(), expected.begin(), expected.end())) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Paths missing;
    for (const auto& path : expected) {
      if (told_.count(path) == 0) missing.insert(path);
    }
    EXPECT_EQ(missing, Paths());
    return std::exchange(told_, Paths());
  }

  TempFolder folder;
  kelsync_watcher* handle = nullptr;

private:
  Paths told_;
};

TEST_F(WatcherTest, TellsWhatChangesAnywhereBelow) {
  watch(wide(root()));
  EXPECT_EQ(kelsync_fw_change_occurred(handle), 0);
  put(root() / "x.rid", "x", 1);
  put(root() / "a.txt", "x", 1);
  fs::create_directories(folder / "elsewhere");
  EXPECT_EQ(toldWith({L"w/a.txt"}).count(L"w/x.rid"), 0u);
  fs::create_directories(root() / "n1/n2/n3");  // at once: nobody can be watching them yet
  put(root() / "n1/n2/n3/c.txt", "x", 1);
  fs::rename(root() / "a.txt", root() / "n1/a2.txt");
  toldWith({L"w/n1/n2/n3/c.txt", L"w/n1/a2.txt", L"w/a.txt"});
  fs::rename(root() / "n1", root() / "m1");
  toldWith({L"w/n1", L"w/m1"});
  if (runsUnderWine()) GTEST_SKIP() << "Wine tells nothing from folders that were there before, or were moved";
  put(root() / "old/deep/b.txt", "x", 1);
  put(root() / "m1/n2/n3/d.txt", "x", 1);
  toldWith({L"w/m1/n2/n3/d.txt", L"w/old/deep/b.txt"});
  fs::remove_all(root() / "m1");
  fs::create_directories(folder / "elsewhere/e1/e2");
  fs::rename(folder / "elsewhere/e1", root() / "e1");
  toldWith({L"w/m1", L"w/e1"});
  put(root() / "e1/e2/f.txt", "x", 1);
  toldWith({L"w/e1/e2/f.txt"});
  fs::rename(root() / "e1", folder / "elsewhere/e1");
  toldWith({L"w/e1"});
  put(folder / "elsewhere/e1/e2/g.txt", "x", 1);
  put(root() / "last.txt", "x", 1);
  for (const auto& path : toldWith({L"w/last.txt"})) EXPECT_EQ(path.find(L"g.txt"), std::wstring::npos);
}

TEST_F(WatcherTest, FlagCallbackAndFolders) {
  kelsync_fw_add_folder(handle, wide(root()).c_str());
  kelsync_fw_startwatch(handle);
  put(root() / "unfiltered", "x", 1);
  kelsync_fw_add_filter(handle, wide(root() / "new").c_str());
  kelsync_fw_add_filter(handle, L"*.pattern");
  kelsync_fw_folders_only(handle, 1);
  fs::create_directories(root() / "new/deep");
  put(root() / "unmatched", "x", 1);
  put(root() / "new/deep/b", "x", 1);
  put(root() / "x.pattern", "x", 1);
  while (kelsync_fw_change_occurred(handle) == 0) std::this_thread::yield();
  EXPECT_EQ(toldWith({L"w", L"w/new/deep"}).count(L"w/unmatched"), 0u);
  kelsync_fw_register_cb(handle, note);
  put(root() / "new/c", "x", 1);
  const auto wasCalled = [&](const std::wstring& path) {
    const std::lock_guard<std::mutex> lock(calledMutex);
    return std::any_of(called.begin(), called.end(), [&](const auto& told) { return relative(told) == path; });
  };
  while (!wasCalled(L"w/new/c")) std::this_thread::yield();
  kelsync_fw_endwatch(handle, 1);
  Paths told;
  collect(told);
  EXPECT_EQ(told.count(L"w/new/c"), 0u);
  kelsync_fw_register_cb(handle, nullptr);  // and watched again
  kelsync_fw_startwatch(handle);
  put(root() / "x.pattern", "x", 2);
  toldWith({L"w"});
}

TEST_F(WatcherTest, BadInput) {
  kelsync_folder_list* list = nullptr;
  kelsync_fw_init(nullptr);
  kelsync_fw_delete(nullptr);
  for (auto* call : {kelsync_fw_add_filter, kelsync_fw_add_folder}) {
    call(nullptr, L"/a");
    call(handle, nullptr);
  }
  kelsync_fw_register_cb(nullptr, note);
  kelsync_fw_register_cb(handle, nullptr);
  kelsync_fw_folders_only(nullptr, 1);
  kelsync_fw_startwatch(nullptr);
  kelsync_fw_endwatch(nullptr, 1);
  kelsync_fw_endwatch(handle, 1);
  EXPECT_EQ(kelsync_fw_change_occurred(nullptr), 0);
  kelsync_fw_get_changes(handle, nullptr);
  kelsync_fw_get_changes(nullptr, &list);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(kelsync_vw_count(list), 0u);
  EXPECT_EQ(kelsync_vw_get(list, 0), nullptr);
  put(root() / "file", "x", 1);
  kelsync_fw_add_filter(handle, L"");
  for (const fs::path& path : {folder / "missing", root() / "file"}) {
    kelsync_fw_add_folder(handle, wide(path).c_str());
    watch(wide(path));
  }
  kelsync_fw_startwatch(handle);
  put(root() / "file", "y", 2);
  kelsync_fw_add_folder(handle, wide(root()).c_str());
  kelsync_fw_startwatch(handle);
  put(root() / "file", "z", 3);  // matches a filter, and its folder is watched by now
  toldWith({L"w/file"});
}

TEST_F(WatcherTest, AFolderThatIsGoneIsToldAndCanBeWatchedAgain) {
  if (runsUnderWine()) GTEST_SKIP() << "Wine does not tell that a watched folder is gone";
  const auto goes = [&](const std::function<void()>& leave) {
    leave();
    toldWith({L"w"});
    fs::create_directories(root());
    kelsync_fw_startwatch(handle);
    for (int i = 0; i < 500 && kelsync_fw_change_occurred(handle) == 0; ++i) {  // its old watch may be ending still
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      kelsync_fw_startwatch(handle);
      put(root() / "again", "x", i);
    }
    toldWith({L"w/again"});
  };
  watch(wide(root()));
  goes([&] { fs::remove_all(root()); });
  goes([&] {
    fs::rename(root(), folder / "moved");
    put(folder / "moved/x", "x", 1);  // shows the move where the system does not tell of it
  });
}

/// Notifications that a test makes up: the overflow of the system's buffer cannot be had on demand.
class MadeUp : public platform::FolderNotifications {
public:
  explicit MadeUp(std::vector<std::pair<Event, std::wstring>> script) : script_(std::move(script)) {}
  bool open() override { return true; }
  Event wait(std::vector<std::wstring>& paths) override {
    std::unique_lock<std::mutex> lock(mutex_);
    if (next_ == script_.size()) changed_.wait(lock, [this] { return stopped_; });
    if (stopped_) return Event::stopped;
    if (!script_[next_].second.empty()) paths.push_back(script_[next_].second);
    return script_[next_++].first;
  }
  bool isIncomplete() const override { return next_ > 0 && script_[next_ - 1].first == Event::lost; }
  void stop() override {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
  }

private:
  std::vector<std::pair<Event, std::wstring>> script_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;
  bool stopped_ = false;
};

TEST_F(WatcherTest, LostNotificationsAreToldAsTheFolder) {
  using Event = platform::FolderNotifications::Event;
  const std::wstring watched = wide(root());
  for (const Event last : {Event::lost, Event::ended}) {
    Watcher watcher([&](const std::wstring&) {
      return std::make_unique<MadeUp>(
          std::vector<std::pair<Event, std::wstring>>{{Event::changes, watched + L"/old/seen"}, {last, L""}});
    });
    watcher.addFolder(watched);
    watcher.vars().addFilter(watched + L"/*/seen");
    watcher.setFoldersOnly(true);
    watcher.start();
    std::vector<std::wstring> told;
    while (told.empty() || told[0] != watched) {
      for (const auto& path : watcher.takeChanges()) told.push_back(genericForm(path));
      std::sort(told.begin(), told.end());
    }
    EXPECT_EQ(Paths(told.begin(), told.end()), (Paths{watched, watched + L"/old", watched + L"/old/deep"}));
    EXPECT_EQ(watcher.isIncomplete(), last == Event::lost);
  }
  Watcher refused([](const std::wstring&) -> std::unique_ptr<MadeUp> { throw std::runtime_error("no more of them"); });
  refused.addFolder(watched);
  EXPECT_THROW(refused.start(), std::runtime_error);
  EXPECT_TRUE(refused.isIncomplete());
}

/// Changes in random order; files get later times and fresh names as they go.
class Storm {
public:
  explicit Storm(const fs::path& root) : root_(root), folders_{root} {}

  void rage(int changes) {
    for (int i = 0; i < changes; ++i) change();
  }
  void makeNestedFolders(int count) {
    fs::path inner = root_;
    for (int i = 0; i < count; ++i) {
      inner = i % 25 == 0 ? root_ / fresh("d") : inner / fresh("d");
      fs::create_directory(inner);
      folders_.push_back(inner);
    }
  }

private:
  std::string fresh(const char* kind) { return kind + std::to_string(++names_); }
  template <class List>
  std::size_t any(const List& list) {
    return random_() % list.size();
  }
  void change() {
    const auto dice = random_() % 100;
    if (files_.empty() || dice < 32) {
      files_.push_back(folders_[any(folders_)] / fresh("f"));
      put(files_.back(), "new", ++time_);
      return;
    }
    const std::size_t i = any(files_);
    if (dice < 60) return put(files_[i], "again" + std::to_string(i), ++time_);
    if (dice < 75) {
      const fs::path to = folders_[any(folders_)] / fresh("r");
      fs::rename(files_[i], to);
      files_[i] = to;
      return;
    }
    if (dice < 76 && !runsUnderWine()) return moveFolder();  // Wine does not follow it
    fs::remove(files_[i]);
    files_[i] = files_.back();
    files_.pop_back();
  }
  void moveFolder() {
    const fs::path from = folders_[any(folders_)];
    if (from == root_) return;
    const fs::path to = root_ / fresh("m");
    fs::rename(from, to);
    for (auto* list : {&files_, &folders_}) {
      for (fs::path& path : *list) {
        const std::wstring text = platform::wideOf(path);
        const std::wstring old = platform::wideOf(from);
        if (platform::liesBelow(text, old)) path = platform::pathOf(platform::wideOf(to) + text.substr(old.size()));
      }
    }
  }

  fs::path root_;
  std::vector<fs::path> folders_;
  std::vector<fs::path> files_;
  std::mt19937 random_{8};
  int names_ = 0;
  int time_ = 0;
};

TEST_F(WatcherTest, SubFolderCyclesCarryABurstOver) {
  Device a(folder / "a", folder / "outside");
  a.cycle();
  kelsync_fw_folders_only(handle, 1);
  watch(wide(a.inside()));
  Storm storm(a.inside());
  const auto syncUntilQuiet = [&] {
    for (int quiet = 0; quiet < 30;) {
      Paths told;
      collect(told);
      std::vector<std::wstring> folders;
      for (const auto& path : told) folders.push_back(wide(folder.path()) + L"/" + path);
      quiet = folders.empty() ? quiet + 1 : 0;
      if (folders.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      a.pair().subScanForChanges(folders);
      a.pair().subScanForChanges(folders);
      a.pair().subResolve();
    }
  };
  storm.makeNestedFolders(1000);
  const int part = runsUnderWine() ? 4 : 1;  // it takes its time for files
  for (const int changes : {12000 / part, 8000 / part}) {
    storm.rage(changes);
    syncUntilQuiet();
    std::set<std::string> outside;
    for (fs::recursive_directory_iterator it(a.outside()), end; it != end; ++it) {
      if (it->path().filename() != ".kelta") outside.insert(it->path().lexically_relative(a.outside()).string());
    }
    std::set<std::string> inside;
    for (fs::recursive_directory_iterator it(a.inside()), end; it != end; ++it) {
      const bool isFile = fs::is_regular_file(it->path());
      if (it->path().filename() == ".rid") continue;
      inside.insert(it->path().lexically_relative(a.inside()).string() + (isFile ? ".kelta" : ""));
    }
    EXPECT_TRUE(inside == outside) << inside.size() << " inside, " << outside.size() << " outside";
    EXPECT_EQ(a.cycle(), "");
  }
  Device b(folder / "b", folder / "outside");
  b.cycle();
  EXPECT_TRUE(a.tree() == b.tree());
}

TEST_F(WatcherTest, SeveralThreadsUseItInAStorm) {
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; !done; ++i) {
      const fs::path file = root() / ("s" + std::to_string(i % 7)) / std::to_string(i % 13);
      put(file, "x", i);
      if (i % 5 == 0) fs::remove_all(file.parent_path());
    }
  });
  for (int round = 0; round < 200; ++round) {
    kelsync_watcher* watcher = nullptr;
    kelsync_fw_init(&watcher);
    kelsync_fw_add_filter(watcher, wide(root()).c_str());
    kelsync_fw_startwatch(watcher);
    std::thread other([&] {
      kelsync_fw_register_cb(watcher, round % 3 == 0 ? nullptr : note);
      kelsync_fw_add_filter(watcher, L"*");
      kelsync_fw_endwatch(watcher, round % 2);
    });
    kelsync_fw_change_occurred(watcher);
    kelsync_folder_list* list = nullptr;
    kelsync_fw_get_changes(watcher, &list);
    kelsync_vw_delete(list);
    other.join();
    if (round % 4 == 0) kelsync_fw_startwatch(watcher);
    if (round % 4 == 1) kelsync_fw_endwatch(watcher, 0);
    kelsync_fw_delete(watcher);
  }
  done = true;
  writer.join();
}

}  // namespace
}  // namespace test
}  // namespace Kelta
