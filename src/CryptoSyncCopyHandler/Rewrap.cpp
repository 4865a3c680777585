// SPDX-License-Identifier: Apache-2.0
// Changing an asset's key. In every archive of the asset the password is wrapped anew; nothing else changes:
//
//     1  the password is had from the metadata, under the new key (then nothing is to be done) or a former one,
//        and must open the content
//     2  a complete archive with new metadata, the other entries byte for byte and the time of the old one is
//        written beside it
//     3  it changes places with the old one, which goes if it is still what was read
//
// Encrypted names depend on the key as well: once the passwords are done, the archives are renamed one by one.
// So every archive opens, at every moment, with the old key or the new one, and whoever calls it again goes on where it
// ended. The former keys are only forgotten when no archive is left that might need them.
#include <algorithm>
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;
using zip::ArchiveFailure;

constexpr int kPasses = 3;
constexpr int kPauseSeconds = 4;

// Whether it is certain that no key opens an archive that could not be read: it is whole, but has no metadata of ours.
// One that is cut short may still be on its way.
bool holdsNoPassword(ArchiveFailure failure, bool named) {
  return failure == ArchiveFailure::noEntry || failure == ArchiveFailure::foreign ||
         (!named && failure == ArchiveFailure::notAnArchive);
}

void writeText(const fs::path& path, const std::string& text) {
  platform::removeEntry(path);
  platform::File file(path, platform::File::Mode::createNew);
  file.write(text.data(), text.size());
  file.close();
}

}  // namespace

struct CryptoSyncCopyHandler::KeyChange {
  const std::string& assetId;
  const std::string& key;
  fs::path metadata;  ///< a temporary file
};

// The host may still have the key that was lost here; whatever it does, the new key stays the installed one.
void CryptoSyncCopyHandler::askForFormer(const KeyChange& change) {
  std::wstring answer = answerOf(change.assetId);
  const Secret former(utf8(answer));
  wipe(answer);
  if (!former.text.empty()) keys_.addFormer(change.assetId, former.text);
  keys_.change(change.assetId, change.key);
}

CryptoSyncCopyHandler::Rewrapped CryptoSyncCopyHandler::rewrap(const KeyChange& change, const fs::path& archive) {
  const platform::FileStamp stamp = platform::stampOf(archive);
  if (stamp.kind == Kind::missing) return Rewrapped::notOurs;
  SealedArchive sealed;
  if (!readSealed(archive, sealed)) {
    const bool foreign =
        holdsNoPassword(sealed.failure, hasExtension(archive)) && platform::stampOf(archive).sameContent(stamp);
    return foreign ? Rewrapped::notOurs : Rewrapped::failed;
  }
  WrappedPasswords wrapped = wrappedPasswords(sealed.meta);
  const auto isOurs = [&](const WrappedPasswords::value_type& member) { return member.first == change.assetId; };
  if (std::none_of(wrapped.begin(), wrapped.end(), isOurs)) return Rewrapped::notOurs;
  const auto opens = [&](const std::string& key, const std::string& hexPass, Secret& password) {
    return passwordUnder(key, hexPass, PasswordForm::ofPair, password.text) && sealed.head->opens(password.text);
  };
  for (const auto& member : wrapped) {
    Secret password;
    if (isOurs(member) && opens(change.key, member.second, password)) return Rewrapped::already;
  }
  for (auto& member : wrapped) {
    if (!isOurs(member)) continue;
    for (const std::string* const key : keys_.readers(change.assetId)) {
      Secret password;
      if (!opens(*key, member.second, password)) continue;
      Secret newKey(change.key);
      member.second = encryptArchivePassword(password.text, newKey.text);
      if (member.second.empty()) return Rewrapped::failed;
      writeText(change.metadata, metadataText(wrapped));
      archive::replaceMetadata(
          spotOfListed(outsideFolder_, archive), stamp, change.metadata, password.text,
          [&](const platform::Spot& fresh, const platform::EntryId& id, const platform::Spot& target) {
            return replaceJudged(fresh, id, target, stamp);
          },
          [this](std::uint64_t) { interruption().check(); });
      return Rewrapped::done;
    }
  }
  HANDLER_ERROR("neither key of asset %s opens %s", change.assetId.c_str(), utf8(archive).c_str());
  return Rewrapped::failed;
}

CryptoSyncCopyHandler::Rewrapped CryptoSyncCopyHandler::rewrapGuarded(const KeyChange& change,
                                                                      const fs::path& archive) {
  try {
    const Rewrapped result = rewrap(change, archive);
    if (result != Rewrapped::failed || !keyNotFound_ || asked_.count(change.assetId) > 0) return result;
    askForFormer(change);
    return rewrap(change, archive);
  } catch (const zip::ArchiveError& error) {
    HANDLER_ERROR("%s: %s", utf8(archive).c_str(), error.what());
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
  return Rewrapped::failed;
}

std::size_t CryptoSyncCopyHandler::rewrapAll(const KeyChange& change, const ArchiveList& list,
                                             const ArchiveProgress& progress) {
  std::vector<fs::path> archives = list.archives;
  const std::uint64_t total = archives.size();
  std::uint64_t done = 0;
  const auto tell = [&](const wchar_t* outcome, const fs::path& archive) {
    ++done;
    if (progress) progress(outcome, genericForm(platform::wideOf(archive)), done, total);
  };
  for (int pass = 1; pass <= kPasses && !archives.empty(); ++pass) {
    if (pass > 1) sleepWithCheck(kPauseSeconds, 1000);  // a cloud client lets go of its files
    std::vector<fs::path> failed;
    for (const fs::path& archive : archives) {
      interruption().check();
      const Rewrapped result = rewrapGuarded(change, archive);
      const bool again = result == Rewrapped::failed && list.beyond.count(archive) == 0;
      if (again) failed.push_back(archive);
      const bool wrapped = result == Rewrapped::done || result == Rewrapped::already;
      if (!again) tell(wrapped ? L"rewrap" : L"kept", archive);
    }
    archives.swap(failed);
  }
  for (const fs::path& archive : archives) tell(L"failed", archive);
  return archives.size();
}

bool CryptoSyncCopyHandler::changeAssetKey(const std::wstring& assetId, const std::wstring& newKey,
                                           const ArchiveProgress& progress, const Renamed& renamed) {
  beginOperation();
  const Secret text(utf8(newKey));
  const std::string id = utf8(assetId);
  if (!AssetKeys::isValidId(id) || text.text.empty() || tempFolder_.empty()) {
    HANDLER_ERROR("key not changed: empty, the asset id cannot be used, or there is no Temp folder");
    return false;
  }
  const TempArea area(tempFolder_, this);
  const KeyChange change{id, text.text, area.path() / kMetadataEntry};
  HANDLER_INFO("changing the key of asset %s", id.c_str());
  keys_.change(id, text.text);
  tryAgainWith(id);
  const ArchiveList list = listArchives();
  const std::size_t failed = rewrapAll(change, list, progress);
  HANDLER_INFO("key of asset %s changed, %lu archives failed", id.c_str(), static_cast<unsigned long>(failed));
  if (renewNames(renamed) && list.whole && failed == 0) {
    keys_.forgetFormer(id);
    return true;
  }
  if (services_.notify)
    services_.notify(
        L"ERROR",
        L"Not every archive could be brought under the new key of " + jsonEscaped(assetId) + L", keep the old one",
        std::wstring());
  return false;
}

}  // namespace Kelta
