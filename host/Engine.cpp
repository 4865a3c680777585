// SPDX-License-Identifier: Apache-2.0
#include "Engine.h"

#include <mutex>

#include "Failure.h"
#include "PairFolders.h"
#include "Stop.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

std::mutex logMutex;  // the log is the process's

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

using MapName = uint32_t(KELSYNC_CALL*)(kelsync_pair*, const wchar_t*, wchar_t**);

std::wstring mappedName(kelsync_pair* handle, MapName map, const std::wstring& name) {
  wchar_t* block = nullptr;
  map(handle, name.c_str(), &block);
  const std::wstring text = block == nullptr ? std::wstring() : block;
  freeme(block);
  return text;
}

}  // namespace

void Engine::start(const std::wstring& state, const std::wstring& log) {
  kelsync_init(&handle_);
  if (handle_ == nullptr) throw Failure{Exit::failed, L"not enough memory"};
  {
    const std::lock_guard<std::mutex> lock(logMutex);
    kelsync_set_log_folder(handle_, log.c_str());
  }
  kelsync_set_state_path(handle_, state.c_str());
}

Engine::Engine(const std::wstring& state, const std::wstring& log) { start(state, log); }

Engine::Engine(const EngineSettings& settings) {
  Stop::listen();
  start(settings.state, settings.log);
  kelsync_set_source_folder(handle_, settings.inside.c_str());
  kelsync_set_dest_folder(handle_, settings.outside.c_str());
  kelsync_set_temp_folder(handle_, settings.temp.c_str());
  kelsync_set_compression_flag(handle_, settings.compress ? 1 : 0);
}

Engine::~Engine() { kelsync_delete(handle_); }

void Engine::setKey(const std::wstring& assetId, const wchar_t* key) {
  kelsync_set_assetkey(handle_, assetId.c_str(), key);
}

void Engine::setNames(bool encrypted) { kelsync_set_FNE(handle_, encrypted ? 1 : 0); }

void Engine::setPace(int percent) { kelsync_set_pace(handle_, percent); }

bool Engine::resetNames() {
  const Stop::Command command(handle_);
  return !stopAsked() && kelsync_FNE_reset(handle_) != 0;
}

std::wstring Engine::encryptedName(const std::wstring& plain) { return mappedName(handle_, fn_encrypt, plain); }

// A name with a backslash takes no part.
std::wstring Engine::plainName(const std::wstring& archive) {
  return archive.find(L'\\') == std::wstring::npos ? mappedName(handle_, fn_decrypt, archive) : std::wstring();
}

std::vector<std::wstring> Engine::archivesOf(const std::wstring& file) {
  const std::wstring encrypted = encryptedName(file);
  std::vector<std::wstring> archives{file + kArchiveSuffix};
  if (!encrypted.empty()) archives.push_back(file.substr(0, file.rfind(L'/') + 1) + encrypted);
  return archives;
}

void Engine::setListener(EntryListener& listener) { kelsync_cb_register_progress(handle_, forwardEntry, &listener); }

void Engine::loadState() {
  const Stop::Command command(handle_);
  kelsync_init_state(handle_);
}

void Engine::initState() {
  loadState();
  clearOldRecords();
}

bool Engine::keyFits(const std::wstring& assetId) {
  const Stop::Command command(handle_);
  return kelsync_verify_assetkey(handle_, assetId.c_str()) != 0;
}

bool Engine::changeKey(const std::wstring& assetId, const wchar_t* newKey) {
  const Stop::Command command(handle_);
  return !stopAsked() && kelsync_change_assetkey(handle_, assetId.c_str(), newKey) != 0;
}

bool Engine::verifyArchives() {
  const Stop::Command command(handle_);
  return !stopAsked() && kelsync_verify_archives(handle_) != 0;
}

void Engine::clearOldRecords() {
  for (const Quarantined& entry : quarantined()) {
    const bool gone = platform::stampOf(platform::pathOf(entry.path)).kind == platform::Kind::missing;
    if (entry.errorId == L"path-issue" || gone) clearRecord(entry);
  }
}

void Engine::cycle() {
  const Stop::Command command(handle_);
  if (!stopAsked()) kelsync_sync_cycle(handle_);
}

void Engine::scanInside() {
  const Stop::Command command(handle_);
  if (!stopAsked()) kelsync_scan_src_changes(handle_);
}

void Engine::scanOutside() {
  const Stop::Command command(handle_);
  if (!stopAsked() && ok()) kelsync_scan_dest_changes(handle_);
}

void Engine::carryOver() {
  const Stop::Command command(handle_);
  if (stopAsked() || !ok()) return;
  kelsync_sync_changes(handle_);
  kelsync_sync_end(handle_);
}

void Engine::dropScans() { kelsync_sync_end(handle_); }

void Engine::subCycle(const std::set<std::wstring>& folders) {
  kelsync_folder_list* list = nullptr;
  kelsync_vw_new(&list);
  if (list == nullptr) throw Failure{Exit::failed, L"not enough memory"};
  for (const std::wstring& folder : folders) kelsync_vw_add(list, folder.c_str());
  const Stop::Command command(handle_);
  kelsync_sub_scan_resolve(handle_, list);
}

void Engine::interrupt() { kelsync_interrupt(handle_); }

std::chrono::seconds Engine::pauseBetweenCycles() { return std::chrono::seconds(kelsync_default_sleep_tell(handle_)); }

bool Engine::ok() const { return kelsync_ok(handle_) != 0; }

bool Engine::stopAsked() const { return Stop::asked(); }

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

std::vector<Quarantined> Engine::quarantined() { return quarantinedOf(quarantineText()); }

std::wstring Engine::waitingText() { return textOf(handle_, kelsync_get_waiting_JSON); }

void Engine::clearRecord(const Quarantined& record) { kelsync_quarantine_clear_rec(handle_, record.record.c_str()); }

}  // namespace host
}  // namespace Kelta
