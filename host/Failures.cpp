// SPDX-License-Identifier: Apache-2.0
#include "Failures.h"

#include <algorithm>
#include <utility>

#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

const std::wstring kCopyFailed = L"Could not copy ";
const std::wstring kDeletionFailed = L"Could not delete ";
const std::wstring kFolderUnread = L"Could not read folder ";
const std::wstring kUnreadFolder = L"the folder cannot be read";

/// Whether the engine's `file`, a last component, is the one that is shown as `name`.
bool isNameOf(const std::wstring& name, const std::wstring& file) {
  const std::wstring last = name.substr(name.rfind(L'/') + 1);
  return file == last || file == last + kArchiveSuffix;
}

}  // namespace

std::wstring Failed::folder() const {
  return reason == kUnreadFolder ? path : genericOf(platform::pathOf(path).parent_path());
}

bool isAboutKey(const Failed& entry) {
  return entry.reason.find(L"no key for") != std::wstring::npos ||
         entry.reason.find(L"under another key") != std::wstring::npos;
}

std::set<std::wstring> Failures::namesOf(const std::vector<Failed>& entries) {
  std::set<std::wstring> names;
  for (const Failed& entry : entries) names.insert(entry.name);
  return names;
}

void Failures::beginCycle() {
  ofCycle_.clear();
  carried_.clear();
}

void Failures::failed(const std::wstring& path, const std::wstring& name) {
  ofCycle_.push_back({path, name, std::wstring()});
  named_.insert(name);
}

bool Failures::explain(const Notification& told) {
  const auto isAbout = [&](const std::wstring& start) { return told.message.compare(0, start.size(), start) == 0; };
  const auto rest = [&](const std::wstring& start) { return told.message.substr(start.size()); };
  if (isAbout(kCopyFailed))
    giveReason(rest(kCopyFailed), told.more);
  else if (isAbout(kDeletionFailed))
    giveReason(rest(kDeletionFailed), told.more.empty() ? L"it could not be deleted" : told.more);
  else if (isAbout(kFolderUnread))
    unreadableFolder(rest(kFolderUnread));
  else
    return false;
  return true;
}

void Failures::unreadableFolder(const std::wstring& folder) {
  failed(folder, pair_.shown(folder, true));
  ofCycle_.back().reason = kUnreadFolder;
}

// Files of the same name are told apart by their order, which is that of the entries. One notification may stand for
// several that say the same.
void Failures::giveReason(const std::wstring& file, const std::wstring& reason) {
  const auto entry = std::find_if(ofCycle_.begin(), ofCycle_.end(), [&](const Failed& failed) {
    return !failed.explained && isNameOf(failed.name, file);
  });
  if (entry == ofCycle_.end()) return;
  entry->reason = reason;
  entry->explained = true;
  for (Failed& other : ofCycle_) {
    if (other.reason.empty() && isNameOf(other.name, file)) other.reason = reason;
  }
}

// The engine has a reason for all but an archive that is none, and a folder that is not empty yet.
std::wstring Failures::likelyReason(const Failed& entry) const {
  const bool archive = isWithin(entry.path, pair_.outside) && !isFolder(entry.path);
  return archive ? L"its archive cannot be read: damaged, or not there as a whole yet" : L"the log tells more";
}

std::vector<Failed> Failures::endCycle(const std::set<std::wstring>* scanned) {
  const std::set<std::wstring> former = namesOf(lasting_);
  std::set<std::wstring> named;
  std::vector<Failed> fresh;
  std::vector<Failed> lasting;
  for (Failed& entry : ofCycle_) {
    if (entry.reason.empty()) entry.reason = likelyReason(entry);
    if (!named.insert(entry.name).second) continue;
    if (former.count(entry.name) == 0) fresh.push_back(entry);
    lasting.push_back(entry);
  }
  for (const Failed& entry : lasting_) {
    const bool lookedAt = scanned == nullptr || scanned->count(entry.folder()) > 0;
    if (!lookedAt && carried_.count(entry.name) == 0 && named.count(entry.name) == 0) lasting.push_back(entry);
  }
  lasting_.swap(lasting);
  named_ = namesOf(lasting_);
  return fresh;
}

}  // namespace host
}  // namespace Kelta
