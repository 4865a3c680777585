// SPDX-License-Identifier: Apache-2.0
// From saving a file in a pair of that many files to its archive standing on the Outside, by what the time goes to.
// The pauses that are asked for are counted and not waited for. Usage: watch_bench FILES [FILES ...]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "base/GenericPath.h"
#include "support/Device.h"
#include "watcher/Watcher.h"

using namespace Kelta;
using namespace Kelta::test;

namespace {

using Moment = std::chrono::steady_clock::time_point;

double milliseconds(Moment from, Moment to) { return std::chrono::duration<double, std::milli>(to - from).count(); }

class CountingClock : public VirtualClock {
public:
  void wait(std::int64_t ms, Interruption& interruption) override {
    waited_ += ms;
    VirtualClock::wait(ms, interruption);
  }
  std::int64_t takeWaited() { return std::exchange(waited_, 0); }

private:
  std::int64_t waited_ = 0;
};

// The engine takes entries of equal times for a pair that is in step, without a look at their content.
void makePair(const Device& device, int files) {
  for (int i = 0; i < files; ++i) {
    const std::string name = std::to_string(i / 1000) + "/" + std::to_string(i / 50) + "/f" + std::to_string(i);
    put(device.inside() / name, "content", 10);
    put(device.outside() / (name + ".kelta"), "archive", 10);
  }
}

std::vector<std::wstring> waitForChanges(Watcher& watcher) {
  while (!watcher.vars().changeOccurred()) std::this_thread::sleep_for(std::chrono::microseconds(100));
  return watcher.takeChanges();
}

void saveOnce(Device& device, CountingClock& clock, Watcher& watcher, int round) {
  SyncPair& pair = device.pair();
  Moment archived;
  pair.setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t, std::uint64_t) {
    archived = std::chrono::steady_clock::now();
  });
  clock.takeWaited();
  const Moment saving = std::chrono::steady_clock::now();
  writeFile(device.inside() / "0/0/f1", "saved " + std::to_string(round));
  const auto folders = waitForChanges(watcher);
  const Moment seen = std::chrono::steady_clock::now();
  pair.subScanForChanges(folders);
  pair.sleepWithCheck(1, 250);
  pair.subScanForChanges(folders);
  const Moment scanned = std::chrono::steady_clock::now();
  pair.subResolve();
  const Moment done = std::chrono::steady_clock::now();
  std::printf("  seen %.1f ms, scans %.1f ms, copy %.1f ms, state %.1f ms; asked to wait %lld ms\n",
              milliseconds(saving, seen), milliseconds(seen, scanned), milliseconds(scanned, archived),
              milliseconds(archived, done), static_cast<long long>(clock.takeWaited()));
}

void measure(int files) {
  TempFolder folder;
  const auto clock = std::make_shared<CountingClock>();
  const fs::path outside = folder / "outside";
  Device device(folder / "a", outside, clock);
  makePair(device, files);
  fs::remove_all(device.state());
  device.start();
  device.cycle();
  Watcher watcher;
  watcher.vars().addFilter(platform::wideOf(device.inside()));
  watcher.setFoldersOnly(true);
  const Moment start = std::chrono::steady_clock::now();
  watcher.start();
  std::printf("%d files: watched after %.1f ms\n", files, milliseconds(start, std::chrono::steady_clock::now()));
  for (int round = 0; round < 5; ++round) {
    saveOnce(device, *clock, watcher, round);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // a new second
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) measure(std::atoi(argv[i]));
  return argc > 1 ? 0 : 2;
}
