// SPDX-License-Identifier: Apache-2.0
// Files that a program has open.
#include <gtest/gtest.h>
#include <windows.h>

#include "platform/Folders.h"
#include "support/TwoDevices.h"
#include "support/faults_windows.h"

namespace Kelta {
namespace test {
namespace {

/// Has a file open until this goes, which for the system is the same in any process: "alone", as a "writer" who shares
/// everything, or as a "reader" who lets nobody delete.
class Holder {
public:
  Holder(const fs::path& file, const std::string& how) {
    const bool writes = how == "writer";
    const DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE | (writes ? FILE_SHARE_DELETE : 0);
    handle_ = CreateFileW(platform::callPath(file).c_str(), writes ? GENERIC_WRITE : GENERIC_READ,
                          how == "alone" ? 0 : shared, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(handle_, INVALID_HANDLE_VALUE) << "not held: " << file;
  }
  ~Holder() { CloseHandle(handle_); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

class HeldFileWindows : public TwoDevices {
protected:
  RecycleBin bin{folder.path()};
};

TEST_F(HeldFileWindows, WritersAndThoseWhoShareNothingLockAFile) {
  const fs::path file = folder / "file";
  put(file, "text", 1);
  EXPECT_FALSE(platform::isLocked(file));
  for (const char* how : {"alone", "writer"}) {
    const Holder holder(file, how);
    EXPECT_TRUE(platform::isLocked(file)) << how;
    const Placeholder placeholder(file);
    EXPECT_FALSE(platform::isLocked(file)) << "what is kept elsewhere is not tried";
    EXPECT_EQ(placeholder.opens(), 0);
  }
  const Holder reader(file, "reader");
  EXPECT_FALSE(platform::isLocked(file));
  EXPECT_FALSE(platform::recycle(file));
  EXPECT_EQ(contentOf(file), "text");
}

TEST_F(HeldFileWindows, AHeldFileIsSkippedAndCarriedOverWhenItIsFree) {
  put(a.inside() / "held", "one", 1);
  put(a.inside() / "free", "two", 1);
  {
    const Holder holder(a.inside() / "held", "alone");
    EXPECT_EQ(a.cycle(), "encrypt:free.kelta failed:held");
    EXPECT_EQ(a.cycle(), "failed:held");
  }
  converge();
  EXPECT_EQ(b.tree(), "free=two@1 held=one@1");

  put(a.inside() / "held", "newer", 2);
  {
    const Holder holder(a.inside() / "held", "writer");
    a.cycle();
    b.cycle();
    EXPECT_EQ(b.tree(), "free=two@1 held=one@1");
  }
  converge();
  EXPECT_EQ(b.tree(), "free=two@1 held=newer@2");
}

TEST_F(HeldFileWindows, AHeldTargetFailsAloneAndHeals) {
  for (const char* how : {"alone", "reader"}) {
    for (const char* name : {"1", "held", "z"}) put(a.inside() / name, "old", 1);
    converge();
    for (const char* name : {"1", "held", "z"}) put(a.inside() / name, how, 5);
    a.cycle();
    {
      const Holder holder(b.inside() / "held", how);
      const std::string told = b.cycle();
      EXPECT_EQ(told, how == std::string("alone") ? "decrypt:1 changing:held.kelta decrypt:z"
                                                  : "decrypt:1 decrypt:z failed:held");
      const boost::system::error_code shared(ERROR_SHARING_VIOLATION, boost::system::system_category());
      EXPECT_EQ(b.notifications().find("Could not copy held\",\"more\":\"" + shared.message()) != std::string::npos,
                how == std::string("reader"))
          << b.notifications();
      b.pair().clearNotifications();
      EXPECT_EQ(b.leftovers(), "");
      EXPECT_EQ(contentOf(b.inside() / "1") + contentOf(b.inside() / "z"), std::string(how) + how);
    }
    converge();
    EXPECT_EQ(contentOf(b.inside() / "held"), how);
    for (const char* name : {"1", "held", "z"}) fs::remove(a.inside() / name);
    converge();
    EXPECT_EQ(b.tree(), "");
  }
}

TEST_F(HeldFileWindows, AHeldArchiveAndAHeldFileOutliveADeletion) {
  put(a.inside() / "x", "text", 1);
  converge();
  fs::remove(a.inside() / "x");
  {
    const Holder holder(a.outside() / "x.kelta", "reader");
    EXPECT_EQ(a.cycle(), "failed:x.kelta");
  }
  EXPECT_EQ(a.cycle(), "delete:x.kelta");
  {
    const Holder holder(b.inside() / "x", "reader");
    EXPECT_EQ(b.cycle(), "failed:x");
    EXPECT_EQ(b.tree(), "x=text@1");
  }
  EXPECT_EQ(b.cycle(), "delete:x");
  EXPECT_TRUE(bin.holds("text"));
  converge();
  EXPECT_EQ(a.tree(), "");
}

}  // namespace
}  // namespace test
}  // namespace Kelta
