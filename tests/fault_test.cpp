// SPDX-License-Identifier: Apache-2.0
// A cycle in which a file call of the C library fails: at the first, the second, the third … call, alone or with every
// one behind it (a disk that filled up, a volume that turned read-only). Whatever fails, no file is lost on either
// side, none is there in part, and the next cycles finish the work.
//
// The calls below stand before the C library's own for the whole program, shared libraries included.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>

#include "support/Device.h"

namespace {

struct Fault {
  bool armed = false;
  bool lasting = false;
  int countdown = 0;
  bool fired = false;
  int error = 0;

  bool strikes() {
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
  std::string closed;     // nothing can be renamed to a path that begins so
  std::string contested;  // somebody makes this file right before it is renamed to
  bool struck = false;
} place;

bool startsWith(const char* path, const std::string& start) {
  return !start.empty() && std::string(path).compare(0, start.size(), start) == 0;
}

bool failsToRead(int file) {
  if (place.unreadable.empty()) return false;
  char path[4096];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
  if (length < 0 || std::string(path, static_cast<std::size_t>(length)) != place.unreadable) return false;
  if (place.readsLeft-- > 0) return false;
  errno = EIO;
  return place.struck = true;
}

bool failsToRename(const char* to) {
  if (!place.contested.empty() && place.contested == to) {
    place.contested.clear();
    Kelta::test::put(to, "from somebody else", 50);
  }
  if (!startsWith(to, place.closed)) return false;
  errno = EACCES;
  return place.struck = true;
}

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
#define KELSYNC_FAULTY_IF(fails, result, name, parameters, arguments)           \
  extern "C" __attribute__((visibility("default"))) result name parameters {    \
    static const auto next = real<result(*) parameters>(#name);                 \
    return fault.strikes() || fails ? static_cast<result>(-1) : next arguments; \
  }
#define KELSYNC_FAULTY(result, name, parameters, arguments) \
  KELSYNC_FAULTY_IF(false, result, name, parameters, arguments)

KELSYNC_FAULTY_OPEN(open)
KELSYNC_FAULTY(ssize_t, write, (int file, const void* data, size_t size), (file, data, size))
KELSYNC_FAULTY_IF(failsToRead(file), ssize_t, read, (int file, void* data, size_t size), (file, data, size))
KELSYNC_FAULTY_IF(failsToRename(to), int, rename, (const char* from, const char* to) noexcept, (from, to))
KELSYNC_FAULTY_IF(failsToRename(to), int, renameat2,
                  (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept,
                  (fromFolder, from, toFolder, to, flags))
KELSYNC_FAULTY(int, unlink, (const char* path) noexcept, (path))
KELSYNC_FAULTY(int, rmdir, (const char* path) noexcept, (path))
KELSYNC_FAULTY(int, mkdir, (const char* path, mode_t mode) noexcept, (path, mode))
KELSYNC_FAULTY(int, utimensat, (int folder, const char* path, const struct timespec* times, int flags) noexcept,
               (folder, path, times, flags))
KELSYNC_FAULTY(int, fchmod, (int file, mode_t mode) noexcept, (file, mode))

// Nothing is ever flushed: that costs most of the time, and these tests cut no power.
extern "C" __attribute__((visibility("default"))) int fsync(int) { return fault.strikes() ? -1 : 0; }

extern "C" __attribute__((visibility("default"))) int lstat(const char* path, struct stat* status) noexcept {
  static const auto next = real<int (*)(const char*, struct stat*)>("lstat64");
  if (!startsWith(path, place.hidden)) return next(path, status);
  errno = EIO;
  return -1;
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
  // The loser that no bin took goes on as a conflict copy.
  const std::string kept = " dir/both!=older@20";
  if (const std::size_t at = after.find(kept); at != std::string::npos) after.erase(at, kept.size());
  EXPECT_EQ(after, kExpected);
  EXPECT_EQ(a.tree(), b.tree());
  EXPECT_EQ(a.leftovers(), "");
  a.start();
  EXPECT_EQ(a.cycle(), "") << "after a restart";
  EXPECT_EQ(namesOf(a.inside()).find(".~") & namesOf(a.outside()).find(".~"), std::string::npos);
  return fired;
}

class FailingCall : public ::testing::TestWithParam<bool> {};

TEST_P(FailingCall, LosesNothingAndHeals) {
  int call = 1;
  while (failAt(call, GetParam())) {
    ASSERT_FALSE(HasFailure()) << "call " << call;
    call += call < 400 ? 1 : 7;
  }
  EXPECT_GT(call, 200) << "the faults struck for too short a time to mean anything";
}

INSTANTIATE_TEST_SUITE_P(OnceAndLasting, FailingCall, ::testing::Bool());

}  // namespace
}  // namespace test
}  // namespace Kelta
