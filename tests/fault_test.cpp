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
#define KELSYNC_FAULTY(result, name, parameters, arguments)                  \
  extern "C" __attribute__((visibility("default"))) result name parameters { \
    static const auto next = real<result(*) parameters>(#name);              \
    return fault.strikes() ? static_cast<result>(-1) : next arguments;       \
  }

KELSYNC_FAULTY_OPEN(open)
KELSYNC_FAULTY(ssize_t, write, (int file, const void* data, size_t size), (file, data, size))
KELSYNC_FAULTY(ssize_t, read, (int file, void* data, size_t size), (file, data, size))
KELSYNC_FAULTY(int, rename, (const char* from, const char* to) noexcept, (from, to))
KELSYNC_FAULTY(int, renameat2,
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

namespace {
std::string hidden;  // an entry below this folder cannot be looked at: an I/O error
}  // namespace

extern "C" __attribute__((visibility("default"))) int lstat(const char* path, struct stat* status) noexcept {
  static const auto next = real<int (*)(const char*, struct stat*)>("lstat64");
  if (hidden.empty() || std::string(path).compare(0, hidden.size(), hidden) != 0) return next(path, status);
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
  hidden = (a.inside() / "dir/").string();
  ASSERT_EQ(platform::stampOf(a.inside() / "dir/one").kind, platform::Kind::unknown);
  a.cycle();
  hidden = (a.inside() / "dir").string();
  a.cycle();
  hidden.clear();
  EXPECT_EQ(namesOf(a.outside()), "dir/ dir/one.kelta dir/sub/ dir/sub/two.kelta");
  EXPECT_EQ(a.cycle(), "");
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
  EXPECT_EQ(withShortConflicts(a.tree()), kExpected);
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
