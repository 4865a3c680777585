// SPDX-License-Identifier: Apache-2.0
// Files that another process has open.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <vector>

#include "platform/Folders.h"
#include "support/Device.h"
#include "support/faults_windows.h"

namespace Kelta {
namespace test {
namespace {

/// Another process that has a file open until this goes: "alone", as a "writer" who shares everything, or as a
/// "reader" who lets nobody delete.
class OtherProgram {
public:
  OtherProgram(const fs::path& file, const std::string& how) {
    HANDLE childIn = nullptr;
    HANDLE childOut = nullptr;
    HANDLE said = nullptr;
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    EXPECT_TRUE(CreatePipe(&childIn, &input_, &inherited, 0) && CreatePipe(&said, &childOut, &inherited, 0));
    SetHandleInformation(input_, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(said, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = childIn;
    start.hStdOutput = start.hStdError = childOut;
    std::array<wchar_t, MAX_PATH> self{};
    GetModuleFileNameW(nullptr, self.data(), MAX_PATH);
    const fs::path program = fs::path(self.data()).parent_path() / "hold_file_windows.exe";
    std::wstring command =
        L"\"" + program.native() + L"\" \"" + platform::callPath(file).native() + L"\" " + fs::path(how).native();
    PROCESS_INFORMATION process{};
    EXPECT_TRUE(CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process));
    process_ = process.hProcess;
    CloseHandle(process.hThread);
    CloseHandle(childIn);
    CloseHandle(childOut);
    std::array<char, 8> text{};
    DWORD got = 0;
    EXPECT_TRUE(ReadFile(said, text.data(), 4, &got, nullptr)) << "not held: " << file;
    EXPECT_STREQ(text.data(), "held");
    CloseHandle(said);
  }
  ~OtherProgram() {
    CloseHandle(input_);
    WaitForSingleObject(process_, INFINITE);
    CloseHandle(process_);
  }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

private:
  HANDLE input_ = nullptr;
  HANDLE process_ = nullptr;
};

class HeldFileWindows : public ::testing::Test {
protected:
  HeldFileWindows() : a(folder / "a", folder / "outside"), b(folder / "b", folder / "outside"), bin(folder.path()) {}

  void converge() {
    for (int round = 0; round < 6; ++round) {
      const std::string events = a.cycle() + b.cycle();
      if (events.empty()) break;
      ASSERT_LT(round, 5) << "never quiet: " << events;
    }
    EXPECT_EQ(a.tree(), b.tree());
    EXPECT_EQ(a.leftovers() + b.leftovers(), "");
  }

  TempFolder folder;
  Device a;
  Device b;
  RecycleBin bin;
};

TEST_F(HeldFileWindows, WritersAndThoseWhoShareNothingLockAFile) {
  const fs::path file = folder / "file";
  put(file, "text", 1);
  EXPECT_FALSE(platform::isLocked(file));
  for (const char* how : {"alone", "writer"}) {
    const OtherProgram other(file, how);
    EXPECT_TRUE(platform::isLocked(file)) << how;
    const Placeholder placeholder(file);
    EXPECT_FALSE(platform::isLocked(file)) << "what is kept elsewhere is not tried";
    EXPECT_EQ(placeholder.opens(), 0);
  }
  const OtherProgram reader(file, "reader");
  EXPECT_FALSE(platform::isLocked(file));
  EXPECT_FALSE(platform::recycle(file));
  EXPECT_EQ(contentOf(file), "text");
}

TEST_F(HeldFileWindows, AHeldFileIsSkippedAndCarriedOverWhenItIsFree) {
  put(a.inside() / "held", "one", 1);
  put(a.inside() / "free", "two", 1);
  {
    const OtherProgram other(a.inside() / "held", "alone");
    EXPECT_EQ(a.cycle(), "failed:held encrypt:free.kelta");
    EXPECT_EQ(a.cycle(), "failed:held");
  }
  converge();
  EXPECT_EQ(b.tree(), "free=two@1 held=one@1");

  put(a.inside() / "held", "newer", 2);
  {
    const OtherProgram other(a.inside() / "held", "writer");
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
      const OtherProgram other(b.inside() / "held", how);
      EXPECT_EQ(b.cycle(), "decrypt:1 failed:held decrypt:z") << how;
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
    const OtherProgram other(a.outside() / "x.kelta", "reader");
    EXPECT_EQ(a.cycle(), "failed:x.kelta");
  }
  EXPECT_EQ(a.cycle(), "delete:x.kelta");
  {
    const OtherProgram other(b.inside() / "x", "reader");
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
