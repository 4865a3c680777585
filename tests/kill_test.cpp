// SPDX-License-Identifier: Apache-2.0
// A cycle that is killed at any moment: nothing half-written is ever visible, nothing is lost, the next run completes
// it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "archive/Archive.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

using Stopwatch = std::chrono::steady_clock;

class Killed : public ::testing::Test {
protected:
  // Runs a whole engine life in a process of its own; true when it was killed before it ended.
  bool runAndKillAfter(std::chrono::microseconds delay) {
    const pid_t child = fork();
    if (child == 0) {
      Device device(folder / "a", folder / "outside");
      device.cycle();
      _exit(0);
    }
    usleep(static_cast<useconds_t>(delay.count()));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status);
  }

  // Kills a life at a random moment; true when it was hit. Aims at the length of a cycle on this machine: longer while
  // cycles are hit, down to what they took when not.
  bool killAtRandom() {
    const auto start = Stopwatch::now();
    const bool hit = runAndKillAfter(std::chrono::microseconds(random() % longest));
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Stopwatch::now() - start).count();
    longest = hit ? longest + longest / 4 : std::max<unsigned>(2000, static_cast<unsigned>(took) / 2);
    return hit;
  }

  // Every file of the Inside must be one of the whole versions that were written.
  void expectWholeFiles() {
    for (const auto& name : names) {
      const fs::path file = folder / ("a/inside/" + name);
      if (fs::exists(file)) {
        EXPECT_EQ(versions[name].count(contentOf(file)), 1u) << name;
      }
    }
    for (fs::recursive_directory_iterator it(folder / "outside"), end; it != end; ++it) {
      if (it->path().extension() != ".kelta" || it->path().filename() == ".kelta") continue;
      EXPECT_NO_THROW(archive::readEntry(it->path(), "__KELASSET_.json", "")) << it->path();
    }
  }

  TempFolder folder;
  std::mt19937 random{20240501};
  unsigned longest = 50000;  // microseconds
  std::vector<std::string> names{"a", "b", "dir/c", "dir/deep/d", "dir/deep/e", "big", "f", "g"};
  std::map<std::string, std::set<std::string>> versions;
};

TEST_F(Killed, FiftyTimesInARow) {
  Device b(folder / "b", folder / "outside");
  std::map<std::string, std::pair<std::string, int>> expected;
  int killed = 0;
  for (int round = 1; killed < 50; ++round) {
    ASSERT_LT(round, 200) << "cycles end before they can be killed";
    for (const auto& name : names) {
      const unsigned dice = random() % 8;
      const fs::path file = folder / ((dice < 4 ? "a/inside/" : "b/inside/") + name);
      if (dice == 0 && expected.count(name) > 0) {
        fs::remove(file);
        expected.erase(name);
      } else if (dice % 4 != 3) {
        const std::string content =
            name + " " + std::to_string(round) + std::string(name == "big" ? 2000000 : random() % 30000, 'x');
        put(file, content, round);
        versions[name].insert(content);
        expected[name] = {content, round};
      }
    }
    b.cycle();
    killed += killAtRandom() ? 1 : 0;
    expectWholeFiles();

    Device a(folder / "a", folder / "outside");
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(a.cycle().find("failed"), std::string::npos);
      EXPECT_EQ(b.cycle().find("failed"), std::string::npos);
    }
    EXPECT_EQ(a.cycle() + b.cycle(), "");
    EXPECT_EQ(a.leftovers() + b.leftovers(), "");
    for (const auto& entry : expected) {
      EXPECT_EQ(contentOf(a.inside() / entry.first), entry.second.first) << entry.first;
    }
    EXPECT_EQ(a.tree(), b.tree());
    std::size_t files = 0;
    for (const auto& name : names) files += fs::exists(a.inside() / name) ? 1U : 0U;
    EXPECT_EQ(files, expected.size());
    EXPECT_EQ(namesOf(a.outside()).find(".~"), std::string::npos);
    EXPECT_EQ(namesOf(a.inside()).find(".~"), std::string::npos);
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

// Both devices write the same files, at equal times and at different ones.
TEST_F(Killed, WhileConflictsAreSettled) {
  Device b(folder / "b", folder / "outside");
  Device(folder / "a", folder / "outside").cycle();
  int killed = 0;
  for (int round = 1; killed < 30; ++round) {
    ASSERT_LT(round, 120) << "cycles end before they can be killed";
    std::set<std::string> written;
    for (int i = 0; i < 6; ++i) {
      for (const std::string device : {"a", "b"}) {
        const std::string content = device + " " + std::to_string(round) + " " + std::to_string(i);
        put(folder / (device + "/inside/x" + std::to_string(i)), content, 10 * round + static_cast<int>(random() % 2));
        written.insert(content);
      }
    }
    b.cycle();
    killed += killAtRandom() ? 1 : 0;
    Device a(folder / "a", folder / "outside");
    std::string events = "?";
    for (int i = 0; i < 6 && !events.empty(); ++i) events = a.cycle() + b.cycle();
    EXPECT_EQ(events + a.leftovers() + b.leftovers(), "");
    EXPECT_EQ(a.tree(), b.tree());
    std::set<std::string> found;
    for (const char* place : {"a/inside", "a/data/Trash/files", "b/data/Trash/files"})
      if (fs::exists(folder / place))
        for (const fs::path& file : fs::directory_iterator(folder / place)) found.insert(contentOf(file));
    for (const std::string& content : written) EXPECT_EQ(found.count(content), 1U) << content << " was lost";
    for (const fs::path& file : fs::directory_iterator(a.inside()))
      if (isConflictName(file.wstring())) fs::remove(file);
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

}  // namespace
}  // namespace test
}  // namespace Kelta
