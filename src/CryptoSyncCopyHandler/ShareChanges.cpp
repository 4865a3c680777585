// SPDX-License-Identifier: Apache-2.0
// A marker that anybody who can write to the Outside may have put there must not move a share under another key in
// silence. Each folder's asset is remembered as it was when a file of it was last encrypted, or decrypted, for it:
//
//     the markers of a share root name two assets   told; nothing is encrypted until they agree
//     another asset than remembered                 told; goes on, or waits for confirmShare()
//     nothing remembered                            a new share, or a new folder: goes on
#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSaveSeconds = 10;  // a long operation must not lose it all when it is killed

std::wstring wide(const std::string& id) {
  std::wstring text;
  platform::wideFromUtf8(id, text);
  return jsonEscaped(text);
}

}  // namespace

/// The share is used with another asset than before, from `base` on downwards.
struct CryptoSyncCopyHandler::ShareChange {
  Share share;
  std::wstring base;
  std::string before;
};

void CryptoSyncCopyHandler::setStateFolder(const std::wstring& folder) {
  if (!shareMemory_.load(joinPath(folderForm(folder), L"Kelta_sync_shares.txt")))
    tellError(L"Which keys the shares had cannot be read: a change of one is not noticed");
}

const std::string& CryptoSyncCopyHandler::shownAsset(const std::string& id) const {
  return id.empty() ? keys_.defaultId() : id;
}

std::wstring CryptoSyncCopyHandler::insidePath(const std::wstring& folder) const {
  return folder.empty() ? insideFolder_ : joinPath(insideFolder_, folder);
}

void CryptoSyncCopyHandler::tellError(const std::wstring& message) {
  HANDLER_ERROR("%s", utf8(message).c_str());
  if (services_.notify) services_.notify(L"ERROR", message, std::wstring());
}

bool CryptoSyncCopyHandler::marksAgree(const Share& share) {
  if (share.state != Share::State::named) return true;
  const Share inside = shares_.insideMarkerOf(share.root);
  if (inside.state != Share::State::named || inside.assetId == share.assetId) return true;
  const std::wstring message = L"The markers of " + jsonEscaped(insidePath(share.root)) + L" name two assets, " +
                               wide(share.assetId) + L" on the Outside and " + wide(inside.assetId) +
                               L" on the Inside: nothing is encrypted there until they agree";
  if (toldOfShares_.insert(message).second) tellError(message);
  return false;
}

bool CryptoSyncCopyHandler::settleChange(const ShareChange& change, const std::wstring& source) {
  const std::wstring message = L"The marker of " + jsonEscaped(insidePath(change.base)) +
                               L" was changed: its files were encrypted for " + wide(shownAsset(change.before)) +
                               L", and are for " + wide(shownAsset(change.share.assetId)) +
                               (changedSharesWait_ ? L" once that is confirmed" : L" from now on");
  if (!changedSharesWait_) {
    tellError(message);
    takeOver(change.share, change.base);
    return true;
  }
  if (toldOfShares_.insert(message).second) tellError(message);
  if (!source.empty() && waitingForShares_.insert(source).second && services_.shareWaits)
    services_.shareWaits(source, true);
  return false;
}

bool CryptoSyncCopyHandler::mayUseShareOf(const fs::path& path, const std::wstring& source) {
  std::wstring relative;
  if (!shares_.relative(genericForm(platform::wideOf(path)), relative)) return true;
  const std::wstring folder = parentOf(relative);
  const Share share = shares_.at(folder);
  if (share.state == Share::State::unusable || !marksAgree(share)) return false;
  const std::string* const before = shareMemory_.usedWith(folder, share.root);
  if (!before || shownAsset(*before) == shownAsset(share.assetId)) return true;
  const bool marked = share.state == Share::State::named;
  return settleChange({share, marked ? share.root : shareMemory_.highestLike(folder), *before}, source);
}

// Whether an archive is under the key of the folder in which it lies, now and as that was remembered: whoever can write
// to the Outside can put a private one into a share, where what becomes of its content is encrypted for others.
bool CryptoSyncCopyHandler::isOfItsFolder(const std::wstring& folder, const SealedArchive& archive,
                                          const std::string& password) {
  const Share share = shares_.at(folder);
  if (share.state == Share::State::unusable) return !changedSharesWait_;  // nothing is encrypted there now
  const std::string own = shownAsset(share.assetId);
  const std::string* const before = shareMemory_.usedWith(folder, share.root);
  return (!before || shownAsset(*before) == own) && wraps(archive, own, password);
}

bool CryptoSyncCopyHandler::mayOpenHere(CopyJob& job, const SealedArchive& archive, const std::string& password) {
  std::wstring relative;
  if (!shares_.relative(genericForm(platform::wideOf(job.source)), relative)) return true;
  const std::wstring folder = parentOf(relative);
  if (isOfItsFolder(folder, archive, password)) return true;
  if (changedSharesWait_) {
    job.outcome.problem =
        L"its archive is of another key than its folder, and is not opened here; it may be moved away";
    return false;
  }
  if (toldOfShares_.insert(folder).second)
    tellError(L"An archive of another key than its folder came into " + jsonEscaped(insidePath(folder)) +
              L": what becomes of it there is encrypted for " + wide(shownAsset(shares_.at(folder).assetId)));
  return true;
}

// What was renamed is still of the asset that it was of, whatever marker its new place gets.
void CryptoSyncCopyHandler::noteRenamed(std::wstring from, std::wstring to, bool isFolder) {
  shareMemory_.follow(from, to, isFolder);
  shareMemory_.save();
}

// The folders at or below `base` that belong to the share are its asset's from now on.
void CryptoSyncCopyHandler::takeOver(const Share& share, const std::wstring& base) {
  shareMemory_.note(base, share.assetId);
  shareMemory_.noteAll(base, share.assetId,
                       [&](const std::wstring& folder) { return shares_.at(folder).root == share.root; });
  shareMemory_.save();
  toldOfShares_.clear();  // whatever comes next is news
  const std::wstring below = insidePath(base);
  for (auto file = waitingForShares_.begin(); file != waitingForShares_.end();) {
    const bool waits = !isBelow(*file, below);
    if (!waits && services_.shareWaits) services_.shareWaits(*file, false);
    file = waits ? std::next(file) : waitingForShares_.erase(file);
  }
}

// A change that was not told yet stays one: an archive of the other asset may have been put there with the marker.
void CryptoSyncCopyHandler::noteShareUse(const fs::path& path) {
  std::wstring relative;
  if (!shares_.relative(genericForm(platform::wideOf(path)), relative)) return;
  const std::wstring folder = parentOf(relative);
  const Share share = shares_.at(folder);
  const std::string* const before = shareMemory_.usedWith(folder, share.root);
  const bool changed = before && shownAsset(*before) != shownAsset(share.assetId);
  if (share.state == Share::State::unusable || changed) return;
  shareMemory_.note(folder, share.assetId);
  shareMemory_.note(share.root, share.assetId);
  if (clock().nowSeconds() < nextShareSave_) return;
  shareMemory_.save();
  nextShareSave_ = clock().nowSeconds() + kSaveSeconds;
}

bool CryptoSyncCopyHandler::confirmShare(std::wstring folder, const std::wstring& assetId) {
  beginOperation();
  std::wstring relative;
  if (!shares_.relative(folderForm(std::move(folder)), relative)) return false;
  const Share share = shares_.at(relative);
  const bool named = share.state != Share::State::unusable && marksAgree(share);
  if (!named || shownAsset(share.assetId) != utf8(assetId)) return false;
  takeOver(share, share.state == Share::State::named ? share.root : relative);
  return true;
}

}  // namespace Kelta
