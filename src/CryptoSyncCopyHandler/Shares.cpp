// SPDX-License-Identifier: Apache-2.0
// A marker that is there but says nothing usable (empty, binary, huge, a folder, not to be read just now) makes its
// folder a share nonetheless: whose files they are is then unknown, and encrypting them under the key of the folder
// above would hand them to others, or lock them away from those they are shared with.
#include "CryptoSyncCopyHandler/Shares.h"

#include <boost/filesystem/exception.hpp>
#include <set>

#include "CryptoSyncCopyHandler/AssetKeys.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Files.h"

namespace Kelta {
namespace {

using platform::Kind;

const wchar_t kShareMarker[] = L".sid";
constexpr std::size_t kMaxMarkerBytes = 64 * 1024;
const char kByteOrderMark[] = "\xEF\xBB\xBF";

std::string firstLine(const boost::filesystem::path& marker) {
  platform::File file(marker, platform::File::Mode::read);
  if (file.size() > kMaxMarkerBytes) return std::string();
  std::string text(kMaxMarkerBytes, '\0');
  text.resize(file.read(&text[0], text.size()));
  text.erase(0, text.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0);
  return text.substr(0, text.find_first_of("\r\n"));
}

bool isPlain(const std::wstring& path) {
  const std::wstring framed = L"/" + path + L"/";
  const bool doubled = !path.empty() && framed.find(L"//") != std::wstring::npos;
  return !doubled && framed.find(L"/./") == std::wstring::npos && framed.find(L"/../") == std::wstring::npos;
}

}  // namespace

void Shares::setInside(const std::wstring& folder) {
  inside_ = folder;
  forget();
}

void Shares::setOutside(const std::wstring& folder) {
  outside_ = folder;
  forget();
}

bool Shares::relative(const std::wstring& path, std::wstring& rest) const {
  for (const std::wstring& root : {inside_, outside_}) {
    const bool isRoot = !root.empty() && platform::samePath(path, root);
    if (!isRoot && !isBelow(path, root)) continue;
    rest = isRoot ? std::wstring() : path.substr(joinPath(root, L"").size());
    return isPlain(rest);
  }
  return false;
}

Share Shares::readMarker(const std::wstring& root, const std::wstring& folder) const {
  Share share;
  share.root = folder;
  if (root.empty()) return share;
  const std::wstring marker = joinPath(folder.empty() ? root : joinPath(root, folder), kShareMarker);
  const auto path = platform::pathOf(marker);
  const Kind kind = platform::stampOf(path).kind;
  if (kind == Kind::missing) return share;
  share.state = Share::State::unusable;
  std::string reason = kind == Kind::file ? "its first line is no asset id" : "it is no file";
  try {
    if (kind == Kind::file) share.assetId = firstLine(path);
  } catch (const boost::filesystem::filesystem_error& error) {
    reason = error.what();
  }
  if (AssetKeys::isValidId(share.assetId)) {
    share.state = Share::State::named;
    return share;
  }
  share.assetId.clear();
  KELTA_LOG(log::copyHandler(), log4cplus::ERROR_LOG_LEVEL, this,
            "share marker not usable, nothing is encrypted: %s: %s", utf8(marker).c_str(), reason.c_str());
  return share;
}

Share Shares::ownOf(const std::wstring& folder) const {
  Share share = readMarker(outside_, folder);
  return share.state == Share::State::none ? readMarker(inside_, folder) : share;
}

Share Shares::insideMarkerOf(const std::wstring& folder) const { return readMarker(inside_, folder); }

const Share& Shares::at(const std::wstring& folder) {
  const auto known = known_.find(folder);
  if (known != known_.end()) return known->second;
  Share share = ownOf(folder);
  if (share.state == Share::State::none && !folder.empty()) share = at(parentOf(folder));
  return known_.emplace(folder, std::move(share)).first->second;
}

void Shares::forgetUpwards(std::wstring folder) {
  known_.erase(std::wstring());
  for (; !folder.empty(); folder = parentOf(folder)) known_.erase(folder);
}

void CryptoSyncCopyHandler::beginOperation() {
  shareMemory_.save();
  shares_.forget();
  asked_.clear();
  dropStaleRecords();
}

bool CryptoSyncCopyHandler::isKeltaShare(std::wstring folder) {
  std::wstring relative;
  return shares_.relative(folderForm(std::move(folder)), relative) &&
         shares_.ownOf(relative).state != Share::State::none;
}

std::wstring CryptoSyncCopyHandler::findShareRoot(std::wstring path) {
  path = folderForm(std::move(path));
  std::wstring relative;
  if (!shares_.relative(path, relative)) return std::wstring();
  const Share& share = shares_.at(relative);
  if (share.state == Share::State::none) return std::wstring();
  const bool inside = isBelow(path, insideFolder_) || platform::samePath(path, insideFolder_);
  const std::wstring& root = inside ? insideFolder_ : outsideFolder_;
  return share.root.empty() ? root : joinPath(root, share.root);
}

std::string CryptoSyncCopyHandler::getAssetForPath(const boost::filesystem::path& path) {
  HANDLER_DEBUG("%s", utf8(path).c_str());
  std::wstring text;
  std::wstring relative;
  if (!platform::wideOf(path, text)) return std::string();
  text = folderForm(std::move(text));
  if (!shares_.relative(text, relative)) {
    const bool within = isBelow(text, insideFolder_) || isBelow(text, outsideFolder_);
    return within ? std::string() : keys_.defaultId();
  }
  const Share& share = shares_.at(parentOf(relative));
  return share.state == Share::State::none ? keys_.defaultId() : share.assetId;
}

// The asset of a file that is about to be encrypted, with the markers on its way looked at again.
std::string CryptoSyncCopyHandler::assetNow(const boost::filesystem::path& path) {
  std::wstring relative;
  if (shares_.relative(genericForm(platform::wideOf(path)), relative)) shares_.forgetUpwards(parentOf(relative));
  return getAssetForPath(path);
}

bool CryptoSyncCopyHandler::mayRename(std::wstring from, std::wstring to) {
  const bool fromShare = isKeltaShare(from);
  const bool toShare = isKeltaShare(to);
  HANDLER_DEBUG("(from) %s is share? %s", utf8(from).c_str(), log::truth(fromShare));
  HANDLER_DEBUG("(to)   %s is share? %s", utf8(to).c_str(), log::truth(toShare));
  std::wstring source;
  std::wstring target;
  if (fromShare || toShare || !shares_.relative(folderForm(std::move(from)), source) ||
      !shares_.relative(folderForm(std::move(to)), target))
    return false;
  const Share one = shares_.at(parentOf(source));
  const Share& two = shares_.at(parentOf(target));
  std::set<std::string> assets{shownAsset(one.assetId), shownAsset(two.assetId)};
  for (const std::string* const before :
       {shareMemory_.usedWith(source, one.root), shareMemory_.usedWith(parentOf(target), two.root)})
    if (before) assets.insert(shownAsset(*before));
  const bool none = one.state == Share::State::none && two.state == Share::State::none;
  const bool same = one.state != Share::State::none && two.state != Share::State::none && one.root == two.root;
  return (none || same) && assets.size() == 1;
}

}  // namespace Kelta
