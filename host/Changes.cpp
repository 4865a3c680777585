// SPDX-License-Identifier: Apache-2.0
#include "Changes.h"

#include <algorithm>
#include <utility>

#include "Failure.h"
#include "platform/AtomicFile.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

// A burst is over when nothing came for that long; one that does not end is dealt with in pieces.
constexpr auto kQuiet = std::chrono::milliseconds(200);
constexpr auto kLongestBurst = std::chrono::seconds(5);
constexpr std::size_t kMostPaths = 200000;

// The library's callback has no context: it goes to all pairs, and each takes what is its own.
std::mutex pairsMutex;
std::set<Changes*> pairs;

bool isEngineFile(const std::wstring& path) {
  const std::wstring name = path.substr(path.rfind(L'/') + 1);
  return name == L".kelta" || name == L".rid" || platform::isTemporaryName(platform::utf8(name));
}

}  // namespace

Changes::Changes(const PairFolders& pair, std::function<void(const std::wstring&)> noticed)
    : pair_(pair), noticed_(std::move(noticed)), waker_([this] {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        arrived_.notify_all();
      }) {
  kelsync_fw_init(&watcher_);
  if (watcher_ == nullptr) throw Failure{Exit::failed, L"not enough memory"};
  // The folders are not given as filters: one whose name has a "*" or "?" would be taken for a pattern.
  for (const std::wstring& folder : {pair.inside, pair.outside}) kelsync_fw_add_folder(watcher_, folder.c_str());
  kelsync_fw_add_filter(watcher_, L"*");
  kelsync_fw_register_cb(watcher_, &Changes::changed);
  {
    const std::lock_guard<std::mutex> lock(pairsMutex);
    pairs.insert(this);
  }
  kelsync_fw_startwatch(watcher_);
}

Changes::~Changes() {
  {
    const std::lock_guard<std::mutex> lock(pairsMutex);
    pairs.erase(this);
  }
  kelsync_fw_delete(watcher_);
}

void Changes::watchAgain() { kelsync_fw_startwatch(watcher_); }

bool Changes::incomplete() const { return kelsync_fw_incomplete(watcher_) != 0; }

void Changes::changed(const wchar_t* path) {
  const std::wstring generic = genericOf(platform::pathOf(path));
  if (isEngineFile(generic)) return;
  const std::lock_guard<std::mutex> lock(pairsMutex);
  for (Changes* const pair : pairs) {
    if (isWithin(generic, pair->pair_.inside) || isWithin(generic, pair->pair_.outside)) pair->add(generic);
  }
}

void Changes::add(const std::wstring& path) {
  const bool isRoot = platform::samePath(path, pair_.inside) || platform::samePath(path, pair_.outside);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    latest_ = std::chrono::steady_clock::now();
    if (paths_.empty() && !anything_) first_ = latest_;
    anything_ = anything_ || isRoot || paths_.size() >= kMostPaths;
    if (!anything_) paths_.insert(path);
    arrived_.notify_all();
  }
  noticed_(path);
}

void Changes::wait(Moment end) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    const bool some = anything_ || !paths_.empty();
    const Moment until = some ? std::min(latest_ + kQuiet, first_ + kLongestBurst) : end;
    if (stopping_ || Moment::clock::now() >= until) return;
    if (until == Moment::max()) {
      arrived_.wait(lock);
    } else {
      arrived_.wait_until(lock, until);
    }
  }
}

std::set<std::wstring> Changes::take(bool& anything) {
  const std::lock_guard<std::mutex> lock(mutex_);
  anything = std::exchange(anything_, false);
  return std::exchange(paths_, {});
}

}  // namespace host
}  // namespace Kelta
