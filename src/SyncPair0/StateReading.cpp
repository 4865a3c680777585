// SPDX-License-Identifier: Apache-2.0
// Reading what an earlier run wrote into the state folder. A file that is there but cannot be read is as good as lost:
// both sides are merged. It is never written over, since it may be whole: before something takes its name it is kept
// under another one.
#include <boost/filesystem/exception.hpp>

#include "SyncPair0/StateLines.h"
#include "SyncPair0/SyncPair.h"
#include "base/Log.h"

namespace Kelta {
namespace {

// A virus scanner or a backup may hold the file for a moment.
constexpr int kReadings = 3;
constexpr long kMillisecondsBetween = 250;
constexpr int kNames = 100;

}  // namespace

// False, with the host told, when the file is there and cannot be read. `read` may be called several times, and must
// begin anew each time.
bool SyncPair::readOwnFile(const std::wstring& file, const std::function<void(StateLines&)>& read) {
  const auto path = platform::pathOf(file);
  unread_.erase(file);
  if (platform::stampOf(path).kind == platform::Kind::missing) return true;
  for (int attempt = 1; attempt <= kReadings; ++attempt) {
    if (attempt > 1) sleepWithCheck(1, kMillisecondsBetween);
    try {
      if (platform::stampOf(path).kind != platform::Kind::file) break;
      StateLines lines(path);
      read(lines);
      return true;
    } catch (const boost::filesystem::filesystem_error& error) {
      PAIR_ERROR("%s", error.what());
    }
  }
  PAIR_ERROR("cannot be read: %s", utf8(file).c_str());
  notify(L"ERROR", L"The state could not be read, both sides are merged");
  unread_.insert(file);
  return false;
}

// Throws filesystem_error when the file has to stay where it is: then it must not be written.
void SyncPair::keepAside(const std::wstring& file) {
  if (unread_.count(file) == 0) return;
  const auto path = platform::pathOf(file);
  for (int number = 1; number <= kNames; ++number) {
    const auto aside = platform::pathOf(file + L".unread" + std::to_wstring(number));
    const bool there = platform::stampOf(path).kind != platform::Kind::missing;
    if (there && !platform::moveFile(path, aside)) continue;
    if (there) PAIR_INFO("kept as %s", utf8(aside).c_str());
    unread_.erase(file);
    return;
  }
  throw boost::filesystem::filesystem_error("cannot be kept aside", path,
                                            make_error_code(boost::system::errc::file_exists));
}

}  // namespace Kelta
