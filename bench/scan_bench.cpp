// SPDX-License-Identifier: Apache-2.0
// The processor time that scans of a tree cost, on a virtual clock: a first scan (everything new), one of a known tree
// (nothing new), and one after everything was deleted; then whole cycles: a quiet one, and those that carry out the
// rename of a folder with everything below it, of a folder on the other side, and of each file.
// Usage: scan_bench FILES [FILES ...]
#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "support/Device.h"

using namespace Kelta;
using namespace Kelta::test;

namespace {

class Stopwatch {
public:
  double lap() {
    const std::clock_t now = std::clock();
    const double seconds = static_cast<double>(now - start_) / CLOCKS_PER_SEC;
    start_ = now;
    return seconds;
  }

private:
  std::clock_t start_ = std::clock();
};

void measure(int files) {
  TempFolder folder;
  Device device(folder / "a", folder / "outside");
  for (int i = 0; i < files; ++i) {
    const std::string name = std::to_string(i / 1000) + "/" + std::to_string(i / 50) + "/f" + std::to_string(i);
    put(device.inside() / name, i % 10 == 0 ? "" : "content", 10);
  }
  SyncPair& pair = device.pair();
  const std::wstring root = platform::wideOf(device.inside());
  Stopwatch watch;
  const int added = pair.scanForUpdates(root, pair.srcStateList, pair.srcSyncList, 500).total();
  const double first = watch.lap();
  pair.generateDirList(pair.srcStateList, root);
  const double index = watch.lap();
  pair.srcSyncList.clear();
  const int changed = pair.scanForUpdates(root, pair.srcStateList, pair.srcSyncList, 500).total();
  const double known = watch.lap();
  for (const auto& entry : fs::directory_iterator(device.inside())) {
    if (entry.path().filename() != ".rid") fs::remove_all(entry.path());
  }
  watch.lap();
  const int deleted = pair.scanForDeletes(root, pair.srcStateList, pair.srcSyncList, 500).total();
  std::printf("%d files: first scan %.2f s (%d), index %.2f s, known tree %.2f s (%d), deletions %.2f s (%d)\n", files,
              first, added, index, known, changed, watch.lap(), deleted);
}

// Nothing is encrypted here: renames look at no content of small files but their hashes.
void measureRenames(int files) {
  TempFolder folder;
  const auto nameOf = [](int i) { return "d/" + std::to_string(i / 50) + "/f" + std::to_string(i); };
  for (int i = 0; i < files; ++i) {
    put(folder / "a/inside" / nameOf(i), "plain" + std::to_string(i), 10);
    put(folder / "outside" / (nameOf(i) + ".kelta"), "archive" + std::to_string(i), 10);
  }
  Device device(folder / "a", folder / "outside");
  Stopwatch watch;
  const auto cycle = [&](const char* expected) {
    watch.lap();
    if (device.cycle().substr(0, 8) != std::string(expected).substr(0, 8)) std::printf("  not a rename\n");
    return watch.lap();
  };
  cycle("");
  const double quiet = cycle("");
  fs::rename(device.inside() / "d", device.inside() / "e");
  const double inside = cycle("rename:e");
  fs::rename(device.outside() / "e", device.outside() / "d");
  const double outside = cycle("rename:d");
  for (int i = 0; i < files; ++i) {
    const fs::path file = device.inside() / nameOf(i);
    fs::rename(file, file.parent_path() / ("n" + std::to_string(i)));
  }
  const double each = cycle("rename:n");
  std::printf("%d files: quiet cycle %.2f s, folder renamed %.2f s, on the Outside %.2f s, each file renamed %.2f s\n",
              files, quiet, inside, outside, each);
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) measure(std::atoi(argv[i]));
  for (int i = 1; i < argc; ++i) measureRenames(std::atoi(argv[i]));
  return argc > 1 ? 0 : 2;
}
