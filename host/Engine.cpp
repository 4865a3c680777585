// SPDX-License-Identifier: Apache-2.0
#include "Engine.h"

#include <atomic>
#include <boost/property_tree/json_parser.hpp>
#include <chrono>
#include <mutex>
#include <sstream>
#include <thread>

#include "Failure.h"
#include "platform/Console.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

using Tree = boost::property_tree::wptree;

// The request to stop. The running handle is guarded so that it is never interrupted once it is being deleted.
std::mutex runningMutex;
kelsync_pair* running = nullptr;
std::atomic<bool> stopRequested{false};

/// Interrupts the running engine until it has stopped: a request that falls between two commands has no effect.
void requestStop() {
  stopRequested = true;
  for (;;) {
    {
      const std::lock_guard<std::mutex> lock(runningMutex);
      if (running == nullptr) return;
      kelsync_interrupt(running);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

void setRunning(kelsync_pair* handle) {
  const std::lock_guard<std::mutex> lock(runningMutex);
  running = handle;
}

void KELSYNC_CALL forwardEntry(void* context, const wchar_t* operation, const wchar_t* path, uint64_t done,
                               uint64_t total) {
  static_cast<EntryListener*>(context)->entry(operation, path, done, total);
}

using ReadText = uint32_t(KELSYNC_CALL*)(kelsync_pair*, wchar_t**);

std::wstring textOf(kelsync_pair* handle, ReadText read) {
  wchar_t* block = nullptr;
  read(handle, &block);
  const std::wstring text = block == nullptr ? std::wstring() : block;
  freeme(block);
  return text;
}

/// The list `name` of a JSON text that the library handed out; empty when there is none.
Tree listOf(const std::wstring& text, const std::wstring& name) {
  if (text.empty()) return Tree();
  std::wistringstream stream(text);
  Tree tree;
  try {
    boost::property_tree::read_json(stream, tree);
  } catch (const boost::property_tree::json_parser_error&) {
    throw Failure{Exit::failed, L"the engine's list of " + name + L" cannot be read"};
  }
  return tree.get_child(name, Tree());
}

std::wstring member(const Tree& tree, const wchar_t* name) { return tree.get<std::wstring>(name, std::wstring()); }

}  // namespace

void Engine::start(const std::wstring& state, const std::wstring& log) {
  kelsync_init(&handle_);
  if (handle_ == nullptr) throw Failure{Exit::failed, L"not enough memory"};
  kelsync_set_log_folder(handle_, log.c_str());
  kelsync_set_state_path(handle_, state.c_str());
}

Engine::Engine(const std::wstring& state, const std::wstring& log) { start(state, log); }

Engine::Engine(const EngineSettings& settings) {
  platform::onTerminate(requestStop);
  start(settings.state, settings.log);
  kelsync_set_source_folder(handle_, settings.inside.c_str());
  kelsync_set_dest_folder(handle_, settings.outside.c_str());
  kelsync_set_temp_folder(handle_, settings.temp.c_str());
  kelsync_set_compression_flag(handle_, settings.compress ? 1 : 0);
}

Engine::~Engine() {
  setRunning(nullptr);
  kelsync_delete(handle_);
}

void Engine::setKey(const std::wstring& assetId, const wchar_t* key) {
  kelsync_set_assetkey(handle_, assetId.c_str(), key);
}

void Engine::setListener(EntryListener& listener) { kelsync_cb_register_progress(handle_, forwardEntry, &listener); }

void Engine::loadState() {
  setRunning(handle_);
  kelsync_init_state(handle_);
  setRunning(nullptr);
}

void Engine::initState() {
  loadState();
  clearOldRecords();
}

bool Engine::keyFits(const std::wstring& assetId) {
  setRunning(handle_);
  const bool fits = kelsync_verify_assetkey(handle_, assetId.c_str()) != 0;
  setRunning(nullptr);
  return fits;
}

bool Engine::changeKey(const std::wstring& assetId, const wchar_t* newKey) {
  setRunning(handle_);
  const bool changed = !stopRequested && kelsync_change_assetkey(handle_, assetId.c_str(), newKey) != 0;
  setRunning(nullptr);
  return changed;
}

bool Engine::verifyArchives() {
  setRunning(handle_);
  const bool right = !stopRequested && kelsync_verify_archives(handle_) != 0;
  setRunning(nullptr);
  return right;
}

void Engine::clearOldRecords() {
  for (const Quarantined& entry : quarantined()) {
    const bool gone = platform::stampOf(platform::pathOf(entry.path)).kind == platform::Kind::missing;
    if (entry.errorId == L"path-issue" || gone) clearRecord(entry);
  }
}

void Engine::cycle() {
  setRunning(handle_);
  if (!stopRequested) kelsync_sync_cycle(handle_);
  setRunning(nullptr);
}

bool Engine::ok() const { return kelsync_ok(handle_) != 0; }

bool Engine::stopAsked() const { return stopRequested; }

std::vector<Notification> notificationsOf(const std::wstring& text) {
  std::vector<Notification> list;
  for (const auto& child : listOf(text, L"notifications")) {
    list.push_back({member(child.second, L"type"), member(child.second, L"message"), member(child.second, L"more")});
  }
  return list;
}

std::vector<Notification> Engine::takeNotifications() {
  const std::wstring text = textOf(handle_, kelsync_get_notifications_JSON);
  const std::size_t start = text.find(L'[') + 1;
  const std::size_t end = text.rfind(L']');
  if (end != std::wstring::npos && end > start)
    taken_ += (taken_.empty() ? L"" : L",") + text.substr(start, end - start);
  kelsync_clear_notifications(handle_);
  return notificationsOf(text);
}

std::wstring Engine::quarantineText() { return textOf(handle_, kelsync_quarantine_get_JSON); }

std::vector<Quarantined> Engine::quarantined() {
  std::vector<Quarantined> list;
  for (const auto& child : listOf(quarantineText(), L"quarantined")) {
    list.push_back({member(child.second, L"record_file"), member(child.second, L"errorid"),
                    member(child.second, L"quarantine_path"), member(child.second, L"message"),
                    member(child.second, L"timestamp")});
  }
  return list;
}

void Engine::clearRecord(const Quarantined& record) { kelsync_quarantine_clear_rec(handle_, record.record.c_str()); }

}  // namespace host
}  // namespace Kelta
