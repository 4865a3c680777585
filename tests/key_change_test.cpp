// SPDX-License-Identifier: Apache-2.0
// A change of keys over many archives that is killed at any moment.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "archive/zip/ArchiveReader.h"
#include "base/Md5.h"
#include "support/Device.h"
#include "support/HandlerFixture.h"

namespace Kelta {
namespace test {
namespace {

constexpr int kArchives = 2000;
constexpr int kKills = 20;

class KeyChange : public ::testing::Test {
protected:
  // Each archive with its time and the bytes of its "Content", the encryption's header included.
  std::map<std::string, std::string> contents() {
    std::map<std::string, std::string> all;
    for (fs::recursive_directory_iterator it(folder / "outside"), end; it != end; ++it) {
      const std::string name = it->path().filename().string();
      if (it->path().extension() != ".kelta" || name == ".kelta" || platform::isTemporaryName(name)) continue;
      zip::ArchiveReader reader(it->path());
      const zip::Entry* const content = reader.find("Content");
      std::string bytes(static_cast<std::size_t>(content->endOffset - content->headerOffset), '\0');
      reader.file().readExactly(content->headerOffset, reinterpret_cast<unsigned char*>(&bytes[0]), bytes.size());
      all[it->path().string()] =
          std::to_string(platform::stampOf(it->path()).nanoseconds) + md5Hex(bytes.data(), bytes.size());
    }
    return all;
  }
  std::set<std::wstring> unopened(Device& device, const std::wstring& key) {
    device.handler().setAssetKey(L"main", key);
    std::set<std::wstring> paths;
    device.handler().verifyArchives(
        [&](const std::wstring& outcome, const std::wstring& path, std::uint64_t, std::uint64_t) {
          if (outcome != L"verify") paths.insert(path);
        });
    return paths;
  }
  // A life of an engine in a process of its own, killed a moment after it has dealt with that many archives; false when
  // it ended before.
  bool changeAndKillAfter(std::uint64_t archives, useconds_t moment, const std::wstring& from, const std::wstring& to) {
    int progress[2];
    if (pipe(progress) != 0) return false;
    const pid_t child = fork();
    if (child == 0) {
      close(progress[0]);
      Device device(folder / "a", folder / "outside");
      device.handler().setAssetKey(L"main", from);
      device.pair().setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t done, std::uint64_t) {
        if (done == archives && write(progress[1], "x", 1) != 1) _exit(1);
      });
      device.changeKey(to);
      _exit(0);
    }
    close(progress[1]);
    char told = 0;
    if (read(progress[0], &told, 1) == 1) usleep(moment);
    close(progress[0]);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status);
  }

  TempFolder folder;
};

TEST_F(KeyChange, KilledAtTwentyMomentsFinishesWhenCalledAgain) {
  std::mt19937 random(20240501);
  std::wstring from = testKey();
  std::wstring to(64, L'5');
  Device b(folder / "b", folder / "outside");
  {
    Device a(folder / "a", folder / "outside");
    for (int i = 0; i < kArchives; ++i)
      put(a.inside() / ("d" + std::to_string(i % 40)) / std::to_string(i), std::string(random() % 3000, 'x'), i);
    a.cycle();
  }
  b.cycle();
  const auto before = contents();
  ASSERT_EQ(before.size(), static_cast<std::size_t>(kArchives));
  int killed = 0;
  int between = 0;
  for (int round = 1; killed < kKills; ++round) {
    ASSERT_LT(round, 100) << "changes end before they can be killed";
    if (changeAndKillAfter(1 + random() % (kArchives * 5 / 4), static_cast<useconds_t>(random() % 2000), from, to)) {
      ++killed;
      const auto old = unopened(b, from);
      const auto notYet = unopened(b, to);
      between += notYet.empty() || old.empty() ? 0 : 1;
      for (const std::wstring& path : notYet) EXPECT_EQ(old.count(path), 0u) << platform::utf8(path);
      EXPECT_TRUE(contents() == before);
      EXPECT_EQ(b.cycle(), "") << "another device copies nothing";
    } else {
      std::swap(from, to);
    }
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  EXPECT_GT(between, kKills / 2) << "most were killed too early or too late";
  Device a(folder / "a", folder / "outside");
  a.handler().setAssetKey(L"main", from);
  EXPECT_TRUE(a.changeKey(to));
  EXPECT_TRUE(unopened(b, to).empty());
  EXPECT_EQ(unopened(b, from).size(), before.size());
  EXPECT_TRUE(contents() == before);
  EXPECT_EQ(a.cycle() + b.cycle() + a.cycle() + b.cycle(), "");
  EXPECT_EQ(namesOf(folder / "outside").find(".~"), std::string::npos);
  EXPECT_EQ(a.leftovers(), "");
}

// Deeper than the system can name at once; made and taken apart from within.
TEST_F(KeyChange, FoldersThatNoScanTakesDoNotEndIt) {
  Device a(folder / "a", folder / "outside");
  put(a.inside() / "x", "content", 10);
  a.cycle();
  const auto wrap = [&](const fs::path& inner, const fs::path& outer) {
    fs::create_directory(outer);
    fs::rename(inner, outer / "deep");
  };
  fs::create_directory(folder / "0");
  constexpr int kLevels = 1000;
  for (int level = 0; level < kLevels; ++level)
    wrap(folder / std::to_string(level % 2), folder / std::to_string((level + 1) % 2));
  fs::rename(folder / "0", a.outside() / "deep");
  EXPECT_TRUE(a.changeKey(L"another key"));
  EXPECT_TRUE(a.handler().verifyArchives({}));
  EXPECT_TRUE(a.resetNames());
  const std::string told = platform::utf8(a.handler().getQuarantineAsJSON());
  EXPECT_NE(told.find("Path too long"), std::string::npos) << told;
  EXPECT_EQ(told.find("errorid"), told.rfind("errorid")) << "named once, where it begins";
  put(a.inside() / "y", "content", 10);
  EXPECT_NE(a.cycle().find("encrypt:y.kelta"), std::string::npos) << "nor do they end anything else";
  fs::rename(a.outside() / "deep", folder / "0");
  for (int level = 0; level < kLevels; ++level) {
    fs::rename(folder / (std::to_string(level % 2) + "/deep"), folder / std::to_string((level + 1) % 2));
    fs::remove(folder / std::to_string(level % 2));
  }
}

}  // namespace
}  // namespace test
}  // namespace Kelta
