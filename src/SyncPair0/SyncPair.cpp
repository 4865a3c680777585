// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/SyncPair.h"

#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

bool hasArchiveExtension(const std::wstring& path) {
  const std::size_t length = sizeof kArchiveExtension / sizeof *kArchiveExtension - 1;
  return path.size() > length && path.compare(path.size() - length, length, kArchiveExtension) == 0;
}

}  // namespace

SyncPair::ScanResult& SyncPair::ScanResult::operator+=(const ScanResult& other) {
  filesChanged += other.filesChanged;
  filesDeleted += other.filesDeleted;
  foldersAdded += other.foldersAdded;
  foldersDeleted += other.foldersDeleted;
  return *this;
}

SyncPair::SyncPair(std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)), interruption_(std::make_shared<Interruption>()), waiting_(clock_) {
  // Whole seconds, as the times of the state.
  startupTime_ = lastStateWriteTime_ = clock_->nowSeconds() * 1000000;
}

SyncPair::~SyncPair() = default;

void SyncPair::setSyncCopyHandler(ISyncCopyHandler* sh) {
  PAIR_DEBUG("sh* = 0x%p", static_cast<void*>(sh));
  handler_.reset(sh);
}

void SyncPair::setSourceFolder(std::wstring path) {
  PAIR_DEBUG("%s", utf8(path).c_str());
  sourceFolder_ = configuredFolder(path);
  if (sourceFolder_.empty()) PAIR_ERROR("not a path for a folder: %s", utf8(path).c_str());
}

void SyncPair::setDestFolder(std::wstring path) {
  PAIR_DEBUG("%s", utf8(path).c_str());
  destFolder_ = configuredFolder(path);
  if (destFolder_.empty()) PAIR_ERROR("not a path for a folder: %s", utf8(path).c_str());
}

void SyncPair::setTempFolder(std::wstring path) { tempFolder_ = configuredFolder(path); }

void SyncPair::notify(const std::wstring& type, const std::wstring& message, const std::wstring& more) {
  std::vector<std::wstring> notification{type, message, more};
  if (queued_.insert(notification).second) notifications_.push_back(std::move(notification));
}

void SyncPair::noteShareWaits(const std::wstring& path, bool waits) {
  const wchar_t* const reason = L"share-unconfirmed";
  if (waits)
    waiting_.note(path, reason);
  else
    waiting_.forget(path, reason);
}

void SyncPair::clearNotifications() {
  notifications_.clear();
  queued_.clear();
}

std::wstring SyncPair::notificationsAsJSON() const {
  std::wstring text = L"{\"notifications\":[";
  for (const auto& notification : notifications_) {
    if (text.back() == L'}') text += L',';
    text += L"{\"type\":\"" + notification[0] + L"\",\"message\":\"" + notification[1] + L"\"";
    if (!notification[2].empty()) text += L",\"more\":" + notification[2];
    text += L'}';
  }
  return text + L"]}";
}

SyncPair::Side SyncPair::side(bool inside) {
  if (inside) return {true, sourceFolder_, srcStateList, srcSyncList};
  return {false, destFolder_, destStateList, destSyncList};
}

// The one spelling by which records and folders of this pair are known.
bool SyncPair::ownSpelling(const std::wstring& path, std::wstring& own) {
  if (!canonicalForm(path, own)) return false;
  own = spelledBelow(destFolder_, spelledBelow(sourceFolder_, own));
  return true;
}

SyncPair::Side SyncPair::sideOf(const std::wstring& path) { return side(isSrcFolder(path)); }

bool SyncPair::isSrcFolder(std::wstring path) {
  const bool inside = platform::liesBelow(folderForm(path), sourceFolder_);
  PAIR_DEBUG("isSrcFolder() %s = %s ? %d", utf8(path).c_str(), utf8(sourceFolder_).c_str(), inside);
  return inside;
}

bool SyncPair::isPairRoot(std::wstring checkPath) {
  PAIR_DEBUG("checkPath = %s - src = %s, dest = %s", utf8(checkPath).c_str(), utf8(sourceFolder_).c_str(),
             utf8(destFolder_).c_str());
  const std::wstring path = folderForm(std::move(checkPath));
  return platform::samePath(path, sourceFolder_) || platform::samePath(path, destFolder_);
}

// The key of an entry is its path relative to the root with the plain name, so that both sides use the
// same one. Empty: an entry that nobody synchronises (on the Outside: no archive).
std::wstring SyncPair::keyOf(const Side& side, const std::wstring& path, bool isFolder) {
  if (side.root.empty() || !platform::liesBelow(path, side.root)) return std::wstring();
  const std::size_t start = joinPath(side.root, L"").size();
  if (path.size() <= start) return std::wstring();
  std::wstring key = path.substr(start);
  if (side.inside) return key;
  if (hasArchiveExtension(nameOf(key)) == isFolder) return std::wstring();
  if (isFolder) return key;
  const std::wstring plain = handler_->handleName(path);
  if (plain.empty()) return std::wstring();
  const std::wstring parent = parentOf(key);
  return parent.empty() ? plain : joinPath(parent, plain);
}

// Empty for an archive whose name cannot be told now.
std::wstring SyncPair::pathFor(const Side& side, const std::wstring& key, bool isFolder) {
  const std::wstring path = joinPath(side.root, key);
  return side.inside || isFolder ? path : archiveFor(key);
}

// A folder of the Inside carries an identifier, which begins with "+"; on the Outside whatever is no archive is one.
bool SyncPair::recordedAsFolder(bool inside, const std::wstring& path, const StateRecord& record) {
  if (!inside) return !hasArchiveExtension(path);
  return record.size() > 1 && !record[1].empty() && record[1][0] == L'+';
}

std::int64_t SyncPair::mtime(std::wstring path) {
  if (path.empty()) {
    PAIR_ERROR("path is empty");
    return 0;
  }
  return platform::stampOf(platform::pathOf(path)).seconds();
}

bool SyncPair::isFileLocked(std::wstring path) {
  PAIR_DEBUG("isFileLocked() %s", utf8(path).c_str());
  if (!platform::isLocked(platform::pathOf(path))) return false;
  PAIR_INFO("File locked: %s", utf8(path).c_str());
  return true;
}

}  // namespace Kelta
