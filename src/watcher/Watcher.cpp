// SPDX-License-Identifier: Apache-2.0
#include "watcher/Watcher.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "base/GenericPath.h"
#include "platform/Folders.h"
#include "platform/Text.h"
#include "watcher/Filter.h"

namespace Kelta {
namespace {

using Lock = std::lock_guard<std::mutex>;

bool isFolder(const std::wstring& path) {
  return platform::kindBehindLinks(platform::pathOf(path)) == platform::Kind::folder;
}

/// Adds every folder below one, following no link.
void addFoldersBelow(const std::wstring& folder, std::set<std::wstring>& folders) {
  std::vector<boost::filesystem::path> queue{platform::pathOf(folder)};
  while (!queue.empty()) {
    std::vector<boost::filesystem::path> entries;
    boost::system::error_code unread;  // what cannot be listed cannot be scanned either
    platform::listFolder(queue.back(), entries, unread);
    queue.pop_back();
    for (const auto& entry : entries) {
      std::wstring path;
      if (platform::stampOf(entry).kind != platform::Kind::folder || !platform::wideOf(entry, path)) continue;
      folders.insert(path);
      queue.push_back(entry);
    }
  }
}

std::vector<std::wstring> listOf(const ChangeSet& changes, bool foldersOnly) {
  std::set<std::wstring> result = foldersOnly ? changes.folders() : changes.paths();
  if (foldersOnly) {
    for (const std::wstring& folder : changes.wholes()) addFoldersBelow(folder, result);
  }
  return {result.begin(), result.end()};
}

void dropEnded(std::vector<std::unique_ptr<WatchThread>>& threads) {
  const auto ended = [](const std::unique_ptr<WatchThread>& thread) { return thread->hasEnded(); };
  threads.erase(std::remove_if(threads.begin(), threads.end(), ended), threads.end());
}

}  // namespace

Watcher::Watcher(Source source) : source_(std::move(source)) {}

void Watcher::addFolder(const std::wstring& folder) {
  const Lock lock(mutex_);
  if (!folder.empty()) folders_.push_back(folder);
}

void Watcher::setFoldersOnly(bool foldersOnly) {
  const Lock lock(mutex_);
  foldersOnly_ = foldersOnly;
}

// Those below another one are watched with it. A parent sorts before what lies below it.
std::vector<std::wstring> Watcher::watchedFolders() {
  std::set<std::wstring> wanted(folders_.begin(), folders_.end());
  if (wanted.empty()) {
    for (const std::wstring& filter : vars_->filters()) {
      if (namesEntry(filter) && isFolder(filter)) wanted.insert(filter);
    }
  }
  std::vector<std::wstring> outermost;
  for (const std::wstring& folder : wanted) {
    const auto holdsIt = [&](const std::wstring& other) {
      return platform::liesBelow(folderForm(folder), folderForm(other));
    };
    if (std::none_of(outermost.begin(), outermost.end(), holdsIt)) outermost.push_back(folder);
  }
  return outermost;
}

bool Watcher::isWatched(const std::wstring& folder) const {
  return std::any_of(threads_.begin(), threads_.end(), [&](const std::unique_ptr<WatchThread>& thread) {
    return platform::liesBelow(folderForm(folder), folderForm(thread->folder()));
  });
}

void Watcher::start() {
  const Lock lock(mutex_);
  dropEnded(threads_);
  dropEnded(leaving_);
  refused_ = true;  // when this throws
  for (const std::wstring& folder : watchedFolders()) {
    if (!isWatched(folder)) threads_.push_back(std::make_unique<WatchThread>(folder, vars_, source_(folder)));
  }
  refused_ = false;
}

bool Watcher::isIncomplete() {
  const Lock lock(mutex_);
  return refused_ || std::any_of(threads_.begin(), threads_.end(),
                                 [](const std::unique_ptr<WatchThread>& thread) { return thread->isIncomplete(); });
}

void Watcher::end(bool wait) {
  std::unique_lock<std::mutex> joining(joining_, std::defer_lock);
  if (wait) joining.lock();
  std::vector<std::unique_ptr<WatchThread>> waitedFor;
  const Lock lock(mutex_);
  for (const auto& thread : threads_) thread->stop();
  std::move(threads_.begin(), threads_.end(), std::back_inserter(leaving_));
  threads_.clear();
  if (wait) waitedFor.swap(leaving_);
}

std::vector<std::wstring> Watcher::takeChanges() {
  bool foldersOnly = false;
  {
    const Lock lock(mutex_);
    foldersOnly = foldersOnly_;
  }
  const ChangeSet changes = vars_->takeChanges();
  try {
    return listOf(changes, foldersOnly);
  } catch (...) {
    vars_->putBack(changes);
    throw;
  }
}

}  // namespace Kelta
