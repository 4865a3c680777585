// SPDX-License-Identifier: Apache-2.0
#include "watcher/WatchThread.h"

#include <exception>
#include <utility>

namespace Kelta {
namespace {

using Event = platform::FolderNotifications::Event;

/// The engine's own folder identifiers.
bool isFolderId(const std::wstring& path) { return path.size() >= 4 && path.compare(path.size() - 4, 4, L".rid") == 0; }

}  // namespace

WatchThread::WatchThread(std::wstring folder, std::shared_ptr<WatchVars> vars,
                         std::unique_ptr<platform::FolderNotifications> notifications)
    : folder_(std::move(folder)), vars_(std::move(vars)), notifications_(std::move(notifications)) {
  std::promise<void> watching;
  const std::future<void> started = watching.get_future();
  thread_ = std::thread([this, promise = std::move(watching)]() mutable { run(promise); });
  started.wait();
}

WatchThread::~WatchThread() {
  stop();
  join();
}

void WatchThread::stop() {
  stopping_ = true;
  notifications_->stop();
}

void WatchThread::join() {
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id())
    thread_.detach();
  else
    thread_.join();
}

void WatchThread::run(std::promise<void>& watching) {
  bool opened = false;
  try {
    opened = notifications_->open();
  } catch (const std::exception&) {
    opened = false;
  }
  incomplete_ = notifications_->isIncomplete();
  watching.set_value();
  try {
    if (opened) watch();
  } catch (const std::exception&) {  // out of memory: what was not handed on is made good for
    vars_->offerWhole(folder_);
  }
  ended_ = true;
}

void WatchThread::watch() {
  std::vector<std::wstring> paths;
  for (;;) {
    paths.clear();
    const Event event = notifications_->wait(paths);
    incomplete_ = notifications_->isIncomplete();
    for (const std::wstring& path : paths) {
      if (stopping_) return;
      if (!isFolderId(path)) vars_->offer(folder_, path);
    }
    if (stopping_ || event == Event::stopped) return;
    if (event != Event::changes) vars_->offerWhole(folder_);
    if (event == Event::ended) return;
  }
}

}  // namespace Kelta
