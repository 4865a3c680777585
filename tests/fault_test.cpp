// SPDX-License-Identifier: Apache-2.0
// A cycle in which a file call of the C library fails: at the first, the second, the third … call, alone or with every
// one behind it (a disk that filled up, a volume that turned read-only). Whatever fails, no file is lost on either
// side, none is there in part, and the next cycles finish the work. And one in which somebody else does something
// between two of its calls: at the first, the second, the third … moment.
//
// The calls below stand before the C library's own for the whole program, shared libraries included.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "support/Device.h"

namespace {

struct Fault {
  bool armed = false;
  bool lasting = false;
  int countdown = 0;
  bool fired = false;
  int error = 0;
  std::function<void()> act = {};  ///< is done right before the call, instead of letting it fail

  /// The moment before any call, also one that only looks.
  void reach() {
    if (!armed || !act || --countdown > 0) return;
    armed = false;
    fired = true;
    act();
  }
  bool strikes() {
    reach();
    if (act) return false;
    if (!armed || --countdown > 0) return false;
    if (countdown < 0 && !lasting) return false;
    fired = true;
    errno = error;
    return true;
  }
} fault;

template <class Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Faults of one place, whatever the call.
struct Place {
  std::string hidden;      // an entry below this folder cannot be looked at: an I/O error
  std::string unreadable;  // this file cannot be read, once `readsLeft` reads went well
  int readsLeft = 0;
  std::string full;       // nothing can be written to a file whose path begins so,
  std::string closed;     // nor renamed to a path that begins so, made there or removed,
  int error = EACCES;     // for this reason
  std::string contested;  // somebody makes this file right before it is renamed to
  std::string last;       // the process ends right after something was exchanged with this file
  bool distant = false;   // every volume is a server's
  std::vector<std::function<void()>> beforeExchanges = {};  // each is done once
  bool struck = false;
} place;

bool startsWith(const std::string& path, const std::string& start) {
  return !start.empty() && path.compare(0, start.size(), start) == 0;
}

std::string pathOf(int file) {
  char path[4096];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
  return length < 0 ? "" : std::string(path, static_cast<std::size_t>(length));
}

bool failsToRead(int file) {
  if (place.unreadable.empty() || pathOf(file) != place.unreadable) return false;
  if (place.readsLeft-- > 0) return false;
  errno = EIO;
  return place.struck = true;
}

std::string pathOf(int folder, const char* name) {
  const std::string path = *name == '/' ? "" : pathOf(folder);
  return path.empty() ? name : path + "/" + name;
}

bool refuses(const std::string& start, const std::string& path) {
  if (!startsWith(path, start)) return false;
  errno = place.error;
  return place.struck = true;
}

bool failsToRename(const std::string& to) {
  if (!place.contested.empty() && place.contested == to) {
    place.contested.clear();
    Kelta::test::put(to, "from somebody else", 50);
  }
  return refuses(place.closed, to);
}

bool failsToWrite(int file) { return !place.full.empty() && refuses(place.full, pathOf(file)); }

mode_t modeOf(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned int)) : 0;
}

}  // namespace

#define KELSYNC_FAULTY_OPEN(name)                                                                \
  extern "C" __attribute__((visibility("default"))) int name(const char* path, int flags, ...) { \
    va_list arguments;                                                                           \
    va_start(arguments, flags);                                                                  \
    const mode_t mode = modeOf(flags, arguments);                                                \
    va_end(arguments);                                                                           \
    static const auto next = real<int (*)(const char*, int, ...)>(#name);                        \
    return fault.strikes() ? -1 : next(path, flags, mode);                                       \
  }
extern "C" __attribute__((visibility("default"))) int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  static const auto next = real<int (*)(int, const char*, int, ...)>("openat");
  return fault.strikes() ? -1 : next(folder, path, flags, mode);
}
#define KELSYNC_FAULTY_IF(fails, result, name, parameters, arguments)           \
  extern "C" __attribute__((visibility("default"))) result name parameters {    \
    static const auto next = real<result(*) parameters>(#name);                 \
    return fault.strikes() || fails ? static_cast<result>(-1) : next arguments; \
  }
#define KELSYNC_FAULTY(result, name, parameters, arguments) \
  KELSYNC_FAULTY_IF(false, result, name, parameters, arguments)

KELSYNC_FAULTY_OPEN(open)
KELSYNC_FAULTY_IF(failsToWrite(file), ssize_t, write, (int file, const void* data, size_t size), (file, data, size))
KELSYNC_FAULTY_IF(failsToRead(file), ssize_t, read, (int file, void* data, size_t size), (file, data, size))
KELSYNC_FAULTY_IF(failsToRename(to), int, rename, (const char* from, const char* to) noexcept, (from, to))
KELSYNC_FAULTY_IF(failsToRename(pathOf(toFolder, to)), int, renameat,
                  (int fromFolder, const char* from, int toFolder, const char* to) noexcept,
                  (fromFolder, from, toFolder, to))
extern "C" __attribute__((visibility("default"))) int renameat2(int fromFolder, const char* from, int toFolder,
                                                                const char* to, unsigned flags) noexcept {
  static const auto next = real<int (*)(int, const char*, int, const char*, unsigned)>("renameat2");
  const std::string target = pathOf(toFolder, to);
  if (fault.strikes() || failsToRename(target)) return -1;
  if (flags == RENAME_EXCHANGE && !place.beforeExchanges.empty()) {
    const auto act = place.beforeExchanges.front();
    place.beforeExchanges.erase(place.beforeExchanges.begin());
    act();
  }
  const int result = next(fromFolder, from, toFolder, to, flags);
  if (result == 0 && !place.last.empty() && place.last == target) _exit(0);
  return result;
}
KELSYNC_FAULTY_IF(refuses(place.closed, pathOf(folder, path)), int, unlinkat,
                  (int folder, const char* path, int flags) noexcept, (folder, path, flags))
KELSYNC_FAULTY_IF(refuses(place.closed, pathOf(folder, path)), int, mkdirat,
                  (int folder, const char* path, mode_t mode) noexcept, (folder, path, mode))
KELSYNC_FAULTY(int, unlink, (const char* path) noexcept, (path))
KELSYNC_FAULTY(int, rmdir, (const char* path) noexcept, (path))
KELSYNC_FAULTY(int, mkdir, (const char* path, mode_t mode) noexcept, (path, mode))
KELSYNC_FAULTY(int, utimensat, (int folder, const char* path, const struct timespec* times, int flags) noexcept,
               (folder, path, times, flags))
KELSYNC_FAULTY(int, fchmod, (int file, mode_t mode) noexcept, (file, mode))

// Nothing is ever flushed: that costs most of the time, and these tests cut no power.
extern "C" __attribute__((visibility("default"))) int fsync(int) { return fault.strikes() ? -1 : 0; }

extern "C" __attribute__((visibility("default"))) int fstatat(int folder, const char* path, struct stat* status,
                                                              int flags) noexcept {
  static const auto next = real<int (*)(int, const char*, struct stat*, int)>("fstatat64");
  fault.reach();
  if (!startsWith(pathOf(folder, path), place.hidden)) return next(folder, path, status, flags);
  errno = EIO;
  return -1;
}

extern "C" __attribute__((visibility("default"))) int lstat(const char* path, struct stat* status) noexcept {
  static const auto next = real<int (*)(const char*, struct stat*)>("lstat64");
  fault.reach();
  if (!startsWith(path, place.hidden)) return next(path, status);
  errno = EIO;
  return -1;
}

extern "C" __attribute__((visibility("default"))) int fstatfs(int file, struct statfs* status) noexcept {
  static const auto next = real<int (*)(int, struct statfs*)>("fstatfs64");
  const int result = next(file, status);
  if (place.distant) status->f_type = 0x6969;
  return result;
}

namespace Kelta {
namespace test {
namespace {

// What the system refuses to tell about has not been deleted.
TEST(UnreadableFolder, IsNoMassDeletion) {
  TempFolder folder;
  Device a(folder / "a", folder / "outside");
  for (const char* name : {"dir/one", "dir/sub/two", "three"}) put(a.inside() / name, "1", 10);
  a.cycle();
  fs::remove(a.inside() / "three");
  place.hidden = (a.inside() / "dir/").string();
  ASSERT_EQ(platform::stampOf(a.inside() / "dir/one").kind, platform::Kind::unknown);
  a.cycle();
  place.hidden = (a.inside() / "dir").string();
  a.cycle();
  place.hidden.clear();
  EXPECT_EQ(namesOf(a.outside()), "dir/ dir/one.kelta dir/sub/ dir/sub/two.kelta");
  EXPECT_EQ(a.cycle(), "");
}

// Both devices changed "x"; the Outside has b's version. Older there and newer here, or the reverse.
class Contested : public ::testing::Test {
protected:
  Contested() : a(folder / "a", folder / "outside"), b(folder / "b", folder / "outside") {}
  ~Contested() override { place = Place(); }
  void contest(int timeOfA, int timeOfB) {
    for (const char* name : {"x", "gone"}) put(a.inside() / name, "0", std::min(timeOfA, timeOfB) - 5);
    settle();
    fs::remove(b.inside() / "gone");
    put(b.inside() / "x", "from b", timeOfB);
    b.cycle();
    put(a.inside() / "x", "from a", timeOfA);
  }
  void settle() {
    place = Place();
    for (int i = 0; i < 3; ++i) {
      a.cycle();
      b.cycle();
    }
    EXPECT_EQ(a.cycle() + b.cycle(), "");
    EXPECT_EQ(a.tree(), b.tree());
    EXPECT_EQ(a.leftovers(), "");
  }
  std::size_t thrownAway(const std::string& content) { return a.bin().contents().count(content); }

  TempFolder folder;
  Device a;
  Device b;
};

TEST_F(Contested, AnArchiveThatCannotBeReadIsNotTakenForDamaged) {
  bool struck = true;
  for (int reads = 0; struck; ++reads) {
    contest(100 * reads + 20, 100 * reads + 10);
    const std::string archive = contentOf(a.outside() / "x.kelta");
    place.unreadable = (a.outside() / "x.kelta").string();
    place.readsLeft = reads;
    a.cycle();
    struck = place.struck;
    place = Place();
    EXPECT_TRUE(contentOf(a.outside() / "x.kelta") == archive || thrownAway("from b") > 0) << reads;
    settle();
    EXPECT_EQ(contentOf(b.inside() / "x"), "from a");
    EXPECT_EQ(thrownAway("from b"), static_cast<std::size_t>(reads) + 1);
    ASSERT_TRUE(reads < 100 && !HasFailure()) << reads;
  }
}

TEST_F(Contested, AVersionThatCannotBeReplacedIsThrownAwayOnce) {
  contest(20, 10);
  place.closed = (a.outside() / "x.kelta").string();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(a.cycle(), i == 0 ? "failed:x delete:gone" : "failed:x");
  EXPECT_TRUE(place.struck);
  settle();
  EXPECT_EQ(thrownAway("from b"), 1U);
  EXPECT_EQ(a.tree(), "x=from a@20");
}

TEST_F(Contested, WhatIsOpenedWhileAnExchangeIsTakenBackIsKept) {
  put(a.inside() / "x", "0", 10);
  settle();
  put(b.inside() / "x", "from b", 20);
  b.cycle();
  int file = -1;
  const fs::path x = a.inside() / "x";
  place.beforeExchanges = {[&] { put(a.inside() / "y", "saved", 30), fs::rename(a.inside() / "y", x); },
                           [&] { file = ::open(x.c_str(), O_WRONLY | O_APPEND); }};
  a.cycle();
  ASSERT_GE(file, 0);
  EXPECT_EQ(::write(file, " and more", 9), 9);
  ::close(file);
  settle();
  EXPECT_NE(a.tree().find("=from b and more@"), std::string::npos) << a.tree();
  EXPECT_NE(a.tree().find("x=saved@30"), std::string::npos) << a.tree();
}

// A server refuses leases for reasons of its own.
TEST_F(Contested, OnAServersVolumeWhoWritesCannotBeTold) {
  put(a.inside() / "x", "0", 10);
  const int writer = ::open((a.inside() / "x").c_str(), O_WRONLY);
  EXPECT_TRUE(platform::isOpenForWriting(a.inside() / "x"));
  place.distant = true;
  EXPECT_FALSE(platform::isOpenForWriting(a.inside() / "x"));
  ::close(writer);
}

TEST_F(Contested, TheHostIsToldTheTrueCause) {
  const struct {
    const char* told;
    fs::path full;
    fs::path closed;
  } rows[] = {{"copy x", {}, a.outside() / "x.kelta"},
              {"copy x", a.temp(), {}},
              {"copy y", a.temp(), {}},
              {"copy new folder", {}, a.outside() / "new folder"},
              {"delete file gone", {}, a.outside() / ".~"},
              {"delete folder gone", {}, a.outside() / "folder gone"}};
  int time = 0;
  for (const int error : {EACCES, ENOSPC, EROFS}) {
    for (const auto& row : rows) {
      for (const char* name : {"x", "file gone"}) put(a.inside() / name, "0", time += 10);
      fs::create_directory(a.inside() / "folder gone");
      settle();
      put(b.inside() / "y", "from b", time += 10);
      b.cycle();
      put(a.inside() / "x", "content", time += 10);
      fs::create_directory(a.inside() / "new folder");
      fs::remove(a.inside() / "file gone");
      fs::remove_all(a.inside() / "folder gone");
      a.pair().clearNotifications();
      a.pair().scanSrcChanges();
      a.pair().scanDestChanges();
      place.full = row.full.string();
      place.closed = row.closed.string();
      place.error = error;
      const std::int64_t before = a.clock().nowMicroseconds();
      a.pair().syncChanges();
      a.pair().endCycle();
      EXPECT_LT(a.clock().nowMicroseconds() - before, 250000) << "of no use to be tried again";
      place = Place();
      const std::string cause = boost::system::error_code(error, boost::system::system_category()).message();
      EXPECT_NE(a.notifications().find(row.told + ("\",\"more\":\"" + cause + "\"}")), std::string::npos)
          << row.told << a.notifications();
      settle();
      EXPECT_EQ(a.tree(), "new folder/ x=content@" + std::to_string(time) + " y=from b@" + std::to_string(time - 10));
      fs::remove_all(a.inside() / "new folder");
    }
  }
}

TEST_F(Contested, NothingIsReplacedOrDeletedWhenTheBinRefuses) {
  for (const int timeOfA : {10, 30}) {
    contest(timeOfA, 20);
    place.closed = (folder / "b/data/Trash/files").string();
    a.cycle();
    EXPECT_TRUE(place.struck);
    EXPECT_EQ(a.tree(), "gone=0@" + std::to_string(std::min(timeOfA, 20) - 5) + " x=from a@" + std::to_string(timeOfA));
    EXPECT_NE(a.notifications().find("the older version could not be put into the recycle bin"), std::string::npos);
    EXPECT_NE(a.notifications().find("Could not delete gone"), std::string::npos);
    settle();
    EXPECT_EQ(thrownAway(timeOfA < 20 ? "from a" : "from b"), 1U);
    for (Device* device : {&a, &b}) fs::remove(device->inside() / "x");
    settle();
  }
}

TEST_F(Contested, WithoutABinTheOlderVersionBecomesAConflictCopy) {
  for (const int timeOfA : {10, 30}) {
    contest(timeOfA, 20);
    fs::remove_all(folder / "b/data");
    writeFile(folder / "b/data", "no folder");
    a.cycle();
    settle();
    const std::string expected = timeOfA < 20 ? "x!=from a@10 x=from b@20" : "x!=from b@20 x=from a@30";
    EXPECT_EQ(withShortConflicts(a.tree()), expected);
    const std::vector<fs::path> files{fs::directory_iterator(a.inside()), fs::directory_iterator()};
    for (const fs::path& file : files)
      if (file.filename() != ".rid") fs::remove(file);
    settle();
  }
}

TEST_F(Contested, WhatAppearsAtTheLastMomentIsNotReplaced) {
  for (const std::string name : {"inside", "outside"}) {
    const fs::path target = name == "inside" ? a.inside() / name : a.outside() / (name + ".kelta");
    put((name == "inside" ? b : a).inside() / name, "new", 10);
    if (name == "inside") b.cycle();
    place.contested = target.string();
    a.cycle();
    EXPECT_EQ(place.contested, "");
    EXPECT_EQ(contentOf(target), "from somebody else");
  }
  put(a.inside() / "key", "x", 10);
  a.cycle();
  place.contested = (a.outside() / "key.kelta").string();
  EXPECT_FALSE(a.handler().changeAssetKey(L"main", L"another key", {}));
  EXPECT_EQ(place.contested, "");
  EXPECT_EQ(contentOf(a.outside() / "key.kelta"), "from somebody else");
}

// What was saved right before a sudden end, while the file was being replaced, is not taken for what was judged.
TEST_F(Contested, WhatWasTakenOutOfItsPlaceIsPutBackAfterASuddenEnd) {
  int time = 10;
  for (const bool saved : {false, true}) {
    for (const std::string side : {"inside", "outside"}) {
      const std::string name = side + (saved ? " saved" : "");
      put(a.inside() / name, "old", time);
      settle();
      Device& other = side == "inside" ? b : a;
      put(other.inside() / name, "mine", time + 10);
      if (side == "inside") b.cycle();
      const fs::path target = side == "inside" ? a.inside() / name : a.outside() / (name + ".kelta");
      place.last = target.string();
      if (saved) place.contested = place.last;
      const pid_t child = fork();
      if (child == 0) {
        a.cycle();
        _exit(1);
      }
      int status = -1;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      ASSERT_EQ(status, 0) << "was not replaced";
      place = Place();
      EXPECT_NE(namesOf(target.parent_path()).find(".~"), std::string::npos);
      a.start();
      for (int i = 0; i < 3; ++i) {
        a.cycle();
        b.cycle();
      }
      EXPECT_EQ(namesOf(a.inside()).find(".~") & namesOf(a.outside()).find(".~"), std::string::npos);
      EXPECT_NE(a.tree().find(name + "=mine@" + std::to_string(time + 10)), std::string::npos) << a.tree();
      // The content is that of no archive, so on the Outside it stays as it is.
      bool found = false;
      for (fs::directory_iterator it(target.parent_path()), end; it != end; ++it)
        found = found || (fs::is_regular_file(it->path()) && contentOf(it->path()) == "from somebody else");
      EXPECT_EQ(found, saved) << name << ": " << namesOf(target.parent_path());
      time += 20;
      for (const fs::path& root : {a.inside(), a.outside()}) {
        const std::vector<fs::path> files{fs::directory_iterator(root), fs::directory_iterator()};
        for (const fs::path& file : files)
          if (file.filename() != ".rid" && file.filename() != ".kelta") fs::remove(file);
      }
      settle();
    }
  }
}

const char kExpected[] =
    "clash!=from a@20 clash=from b@20 dir/ dir/both=newer@30 dir/new a=na@20 edited a=2@20 edited b=2@20 kept=1@10 new "
    "b=nb@20";

void prepare(Device& a, Device& b) {
  for (const char* name : {"kept", "clash", "edited a", "edited b", "deleted a", "deleted b", "dir/both", "old/file"}) {
    put(a.inside() / name, "1", 10);
  }
  a.cycle();
  b.cycle();
  put(b.inside() / "edited b", "2", 20);
  put(b.inside() / "new b", "nb", 20);
  put(b.inside() / "clash", "from b", 20);
  put(b.inside() / "dir/both", "newer", 30);
  fs::remove(b.inside() / "deleted b");
  fs::remove_all(b.inside() / "old");
  b.cycle();
  put(a.inside() / "edited a", "2", 20);
  put(a.inside() / "dir/new a", "na", 20);
  put(a.inside() / "clash", "from a", 20);
  put(a.inside() / "dir/both", "older", 20);
  fs::remove(a.inside() / "deleted a");
}

// False when the cycle ended before the fault could strike.
bool failAt(int call, bool lasting) {
  TempFolder folder;
  Device a(folder / "a", folder / "outside");
  Device b(folder / "b", folder / "outside");
  prepare(a, b);
  static const int errors[] = {ENOSPC, EACCES, EIO};
  fault = Fault{true, lasting, call, false, errors[call % 3]};
  try {
    a.cycle();
  } catch (const fs::filesystem_error&) {  // the state could not be written: the end of the command
    a.pair().endCycle();
  }
  const bool fired = fault.fired;
  fault = Fault();
  const std::string during = a.tree();
  for (const std::string whole : {"edited a=2@20", "dir/new a=na@20", "kept=1@10"}) {
    EXPECT_NE((" " + during + " ").find(" " + whole + " "), std::string::npos) << during;
  }
  EXPECT_NE(during.find("=from a@20"), std::string::npos) << during;
  for (int i = 0; i < 4; ++i) {
    a.cycle();
    b.cycle();
  }
  EXPECT_EQ(a.cycle() + b.cycle(), "") << "quiet";
  std::string after = withShortConflicts(a.tree());
  // The loser that no bin took goes on as a conflict copy; the folder that could not be removed is back, empty.
  for (const std::string kept : {" dir/both!=older@20", " old/"}) {
    if (const std::size_t at = after.find(kept); at != std::string::npos) after.erase(at, kept.size());
  }
  EXPECT_EQ(after, kExpected);
  EXPECT_EQ(a.tree(), b.tree());
  a.start();
  EXPECT_EQ(a.leftovers(), "") << "what could not be removed at the time";
  EXPECT_EQ(a.cycle(), "") << "after a restart";
  EXPECT_EQ(namesOf(a.inside()).find(".~") & namesOf(a.outside()).find(".~"), std::string::npos);
  return fired;
}

// Sanitizers make each run slow, and look at something else.
#ifdef __SANITIZE_ADDRESS__
constexpr int kStride = 7;
#else
constexpr int kStride = 1;
#endif

class FailingCall : public ::testing::TestWithParam<bool> {};

// Each call fails either once or for good.
TEST_P(FailingCall, LosesNothingAndHeals) {
  int call = GetParam() ? 1 : 2;
  while (failAt(call, GetParam())) {
    ASSERT_FALSE(HasFailure()) << "call " << call;
    call += 2 * (call < 400 ? kStride : 7);
  }
  EXPECT_GT(call, 200) << "the faults struck for too short a time to mean anything";
}

INSTANTIATE_TEST_SUITE_P(OnceAndLasting, FailingCall, ::testing::Bool());

// What a program, or a second device, does while device a runs a cycle.
struct Moment {
  const char* name;
  void (*prepare)(Device& a, Device& b);
  void (*act)(Device& a, const fs::path& late);  ///< `late`: an archive of "x" as "late", time 40
  const char* expected;                          ///< what both devices have in the end, conflict copies left out
  bool quiet;                                    ///< no bin and no conflict copy may get anything
  const char* alsoKept = "";                     ///< a version that must be somewhere, if only in a bin
  bool deletes = false;
  int stride = 1;
};
void PrintTo(const Moment& moment, std::ostream* out) { *out << moment.name; }

void save(const fs::path& file, const std::string& content, std::int64_t time) {
  put(file.parent_path() / "saving.tmp~", content, time);
  fs::rename(file.parent_path() / "saving.tmp~", file);
}
// Somebody who may write to the pair puts a link in the place of its folder "dir", to a foreign folder that looks the
// same down to the times: a step by path cannot tell the one from the other.
struct Swap {
  fs::path folder;
  fs::path aside;
  fs::path foreign;
  std::string before = {};

  bool done() const { return !before.empty(); }
  // Everything of the foreign folder that a step could change.
  std::string state() const {
    std::ostringstream text;
    std::set<fs::path> entries{foreign};
    for (fs::recursive_directory_iterator it(foreign), end; it != end; ++it) entries.insert(it->path());
    for (const fs::path& entry : entries) {
      struct stat status {};
      EXPECT_EQ(stat(entry.c_str(), &status), 0);
      text << entry << ' ' << status.st_ino << ' ' << std::oct << status.st_mode << ' ' << status.st_nlink << ' '
           << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec << ' ' << status.st_ctim.tv_sec << '.'
           << status.st_ctim.tv_nsec << ' ' << (S_ISREG(status.st_mode) ? contentOf(entry) : "") << '\n';
    }
    return text.str();
  }
  void make() {
    fs::create_directory(foreign);
    for (fs::recursive_directory_iterator it(folder), end; it != end; ++it) {
      const fs::path copy = foreign / it->path().lexically_relative(folder);
      if (fs::is_directory(it->path())) fs::create_directory(copy);
      if (fs::is_regular_file(it->path())) fs::copy_file(it->path(), copy);
      platform::setLastWriteTime(copy, platform::stampOf(it->path()).nanoseconds);
    }
    fs::rename(folder, aside);
    fs::create_directory_symlink(foreign, folder);
    before = state();
  }
  void takeBack() {
    fs::remove(folder);
    fs::rename(aside, folder);
    EXPECT_EQ(state(), before) << "the foreign folder was changed";
    before.clear();
  }
} swapped;

void swapForLink(Device& a, const fs::path& side) {
  const fs::path home = a.outside().parent_path();
  swapped = {side / "dir", home / "aside", home / "foreign"};
  swapped.make();
}
void begin(Device& a, Device& b) {
  for (const char* name : {"x", "dir/x"}) put(a.inside() / name, "old", 10);
  a.cycle();
  b.cycle();
}
// Everything that is carried from one side to the other, in one folder.
void changeAll(Device& device) {
  put(device.inside() / "dir/x", "mine", 20);
  put(device.inside() / "dir/new", "new", 20);
  put(device.inside() / "dir/more/new", "new", 20);
  fs::remove(device.inside() / "dir/gone");
  fs::remove_all(device.inside() / "dir/gone too");
  fs::rename(device.inside() / "dir/old name", device.inside() / "dir/new name");
  fs::rename(device.inside() / "dir/old", device.inside() / "dir/moved");
}
void beginAll(Device& a, Device& b) {
  for (const char* name : {"gone", "gone too/y", "old name", "old/z"})
    put(a.inside() / "dir" / name, std::string("old ") + name, 10);
  begin(a, b);
}
void edit(Device& device, const std::string& content, std::int64_t time) { put(device.inside() / "x", content, time); }
void saveLate(Device& a, const fs::path&) { save(a.inside() / "x", "late", 40); }
void deliver(const fs::path& late, const fs::path& archive) {
  const fs::path arriving = archive.parent_path() / ".~delivered";
  fs::copy_file(late, arriving);
  platform::setLastWriteTime(arriving, (kEpoch + 40) * 1000000000);
  fs::rename(arriving, archive);
}
void deliverLate(Device& a, const fs::path& late) { deliver(late, a.outside() / "x.kelta"); }
bool gone = false;  // the user deleted "x", and not what was "x" before

const Moment kMoments[] = {
    {"encrypt", [](Device& a, Device& b) { begin(a, b), edit(a, "mine", 20); }, saveLate, "dir/ dir/x=old@10 x=late@40",
     true},
    {"encrypt, a second device", [](Device& a, Device& b) { begin(a, b), edit(a, "mine", 20); }, deliverLate,
     "dir/ dir/x=old@10 x=late@40", false},
    {"decrypt", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(); }, saveLate,
     "dir/ dir/x=old@10 x=late@40", false, "mine"},
    {"decrypt, a second device", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(); }, deliverLate,
     "dir/ dir/x=old@10 x=late@40", true},
    {"deletion", [](Device& a, Device& b) { begin(a, b), fs::remove(b.inside() / "x"), b.cycle(); }, saveLate,
     "dir/ dir/x=old@10 x=late@40", false},
    {"deletion, a second device", [](Device& a, Device& b) { begin(a, b), fs::remove(a.inside() / "x"); }, deliverLate,
     "dir/ dir/x=old@10 x=late@40", true},
    {"tie", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(), edit(a, "ours", 20); }, saveLate,
     nullptr, false, "mine"},
    {"tie, a second device",
     [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(), edit(a, "ours", 20); }, deliverLate,
     nullptr, false, "ours"},
    {"tie, deleted", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(), edit(a, "ours", 20); },
     [](Device& a, const fs::path&) { gone = contentOf(a.inside() / "x") == "mine" && fs::remove(a.inside() / "x"); },
     nullptr, false, "ours", true},
    {"newer wins", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 30), b.cycle(), edit(a, "ours", 20); },
     saveLate, nullptr, false, "mine"},
    {"older loses", [](Device& a, Device& b) { begin(a, b), edit(b, "mine", 20), b.cycle(), edit(a, "ours", 30); },
     deliverLate, nullptr, false},
    {"rename", [](Device& a, Device& b) { begin(a, b), fs::rename(b.inside() / "x", b.inside() / "y"), b.cycle(); },
     saveLate, nullptr, false},
    {"rename with a new time, a second device",
     [](Device& a, Device& b) {
       begin(a, b), fs::rename(a.inside() / "x", a.inside() / "y");
       platform::setLastWriteTime(a.inside() / "y", (kEpoch + 20) * 1000000000);
     },
     [](Device& a, const fs::path& late) {
       if (!fs::exists(a.outside() / "y.kelta")) return deliverLate(a, late);
       deliver(late, a.outside() / "y.kelta");
     },
     nullptr, false},
    {"rename of the folder",
     [](Device& a, Device& b) { begin(a, b), fs::rename(b.inside() / "dir", b.inside() / "moved"), b.cycle(); },
     [](Device& a, const fs::path&) {
       save(a.inside() / (fs::exists(a.inside() / "dir") ? "dir/x" : "moved/x"), "late", 40);
     },
     nullptr, false},
    {"rename of the folder, a second device",
     [](Device& a, Device& b) { begin(a, b), fs::rename(a.inside() / "dir", a.inside() / "moved"); },
     [](Device& a, const fs::path& late) {
       deliver(late, a.outside() / (fs::exists(a.outside() / "dir") ? "dir/x.kelta" : "moved/x.kelta"));
     },
     nullptr, false},
    {"a file that grows", [](Device& a, Device& b) { begin(a, b), put(a.inside() / "x", "la", 20); },
     [](Device& a, const fs::path&) { writeFile(a.inside() / "x", "late"); }, nullptr, true},
    {"a part that is renamed", [](Device& a, Device& b) { begin(a, b), put(a.inside() / "x.part", "la", 20); },
     [](Device& a, const fs::path&) {
       writeFile(a.inside() / "x.part", "late");
       fs::rename(a.inside() / "x.part", a.inside() / "y");
     },
     nullptr, true},
    {"a part that is deleted", [](Device& a, Device& b) { begin(a, b), put(a.inside() / "z", "part", 20); },
     [](Device& a, const fs::path&) { fs::remove(a.inside() / "z"); }, "dir/ dir/x=old@10 x=old@10", false, "", true},
    {"a link for a folder, Inside", [](Device& a, Device& b) { beginAll(a, b), changeAll(b), b.cycle(); },
     [](Device& a, const fs::path&) { swapForLink(a, a.inside()); }, nullptr, false, "mine", true, 3},
    {"a link for a folder, Outside", [](Device& a, Device& b) { beginAll(a, b), changeAll(a); },
     [](Device& a, const fs::path&) { swapForLink(a, a.outside()); }, nullptr, false, "mine", true, 3},
};

// False when the cycle ended before the moment came.
bool actAt(const Moment& moment, int call, const fs::path& late) {
  TempFolder folder;
  Device a(folder / "a", folder / "outside");
  Device b(folder / "b", folder / "outside");
  moment.prepare(a, b);
  const std::multiset<std::string> before = a.bin().contents();
  fault = Fault();
  fault.countdown = call;
  gone = false;
  bool seen = false;  // what the user saves over is the user's to lose
  fault.act = [&] {
    seen = fs::exists(a.inside() / "x") && contentOf(a.inside() / "x") == moment.alsoKept;
    moment.act(a, late);
  };
  fault.armed = true;
  a.cycle();
  const bool fired = fault.fired;
  fault = Fault();
  if (swapped.done()) swapped.takeBack();
  for (int i = 0; i < 5; ++i) {
    a.cycle();
    b.cycle();
    a.clock().advance(60000);
    b.clock().advance(60000);
  }
  EXPECT_EQ(a.cycle() + b.cycle(), "") << "quiet";
  EXPECT_EQ(a.tree(), b.tree());
  EXPECT_EQ(a.leftovers(), "");
  const std::string after = withShortConflicts(a.tree());
  if (fired && moment.expected && after.find('!') == std::string::npos) {
    EXPECT_EQ(after, moment.expected);
  }
  EXPECT_TRUE(!gone || after.find(" x=") == std::string::npos) << "came back: " << after;
  EXPECT_TRUE(!fired || moment.deletes || after.find("=late@") != std::string::npos) << after;
  const bool kept = after.find(std::string("=") + moment.alsoKept + "@") != std::string::npos;
  EXPECT_TRUE(!*moment.alsoKept || seen || kept || a.bin().holds(moment.alsoKept)) << after;
  if (moment.quiet && fired) {
    EXPECT_EQ(after.find('!'), std::string::npos) << after;
    EXPECT_EQ(a.bin().contents(), before);
  }
  return fired;
}

class Meanwhile : public ::testing::TestWithParam<Moment> {};

TEST_P(Meanwhile, WhatIsDoneBetweenTwoCallsIsNotLost) {
  TempFolder folder;
  Device c(folder / "c", folder / "outside");
  put(c.inside() / "x", "late", 40);
  c.cycle();
  int call = 1;
  while (actAt(GetParam(), call, folder / "outside/x.kelta")) {
    ASSERT_FALSE(HasFailure()) << GetParam().name << ", call " << call;
    call += GetParam().stride * kStride;
  }
  EXPECT_GT(call, 100) << "the cycle ended too soon to mean anything";
}

INSTANTIATE_TEST_SUITE_P(AtEveryCall, Meanwhile, ::testing::ValuesIn(kMoments));

}  // namespace
}  // namespace test
}  // namespace Kelta
