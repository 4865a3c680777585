// SPDX-License-Identifier: Apache-2.0
// Changing an asset's key. In every archive of the asset the password is wrapped anew; nothing else changes:
//
//     1  the password is had from the metadata, under the new key (then nothing is to be done) or a former one,
//        and must open the content
//     2  a complete archive with new metadata, the other entries byte for byte and the time of the old one is
//        written beside it
//     3  one rename puts it in place, if what stands there is still what was read
//
// So every archive opens, at every moment, with the old key or the new one, and whoever calls it again goes on where it
// ended. The former keys are only forgotten when no archive is left that might need them.
#include <algorithm>
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CloudNames.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
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

// Every archive of the Outside, also those that no scan takes (over-long paths, names of a cloud client). False when
// some folder could not be listed.
bool CryptoSyncCopyHandler::listArchives(std::vector<fs::path>& archives) {
  std::string reason;
  bool whole = reachFolder(outsideFolder_, outsideFolder_, reason) == Reach::there;
  if (!whole) HANDLER_ERROR("%s", reason.c_str());
  std::vector<fs::path> folders;
  if (whole) folders.push_back(platform::pathOf(outsideFolder_));
  while (!folders.empty()) {
    interruption().check();
    std::vector<fs::path> entries;
    boost::system::error_code error;
    const fs::path folder = folders.back();
    folders.pop_back();
    platform::listFolder(folder, entries, error);
    if (error) HANDLER_ERROR("cannot list %s: %s", utf8(folder).c_str(), error.message().c_str());
    whole = whole && !error;
    for (const fs::path& entry : entries) {
      const Kind kind = platform::stampOf(entry).kind;
      std::wstring name;
      platform::wideOf(entry.filename(), name);
      CloudCopy copy;
      whole = whole && kind != Kind::unknown;
      if (kind == Kind::folder) folders.push_back(entry);
      if (kind == Kind::file && !isReservedName(name, false) && (hasExtension(entry) || readCloudCopy(name, copy)))
        archives.push_back(entry);
    }
  }
  return whole;
}

// Whether it is certain that no key opens the archive: it is whole, but has no metadata of ours. One that is cut short
// may still be on its way.
bool CryptoSyncCopyHandler::holdsNoPassword(const fs::path& archive) {
  try {
    archive::readEntry(archive, kMetadataEntry, std::string());
    return true;
  } catch (const zip::ArchiveError& error) {
    return error.failure() == ArchiveFailure::noEntry ||
           (!hasExtension(archive) && error.failure() == ArchiveFailure::notAnArchive);
  }
}

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
  boost::property_tree::ptree meta;
  if (!getZipMetaJSON(archive, meta)) {
    const bool foreign = holdsNoPassword(archive) && platform::stampOf(archive).sameContent(stamp);
    return foreign ? Rewrapped::notOurs : Rewrapped::failed;
  }
  WrappedPasswords wrapped = wrappedPasswords(meta);
  const auto isOurs = [&](const WrappedPasswords::value_type& member) { return member.first == change.assetId; };
  if (std::none_of(wrapped.begin(), wrapped.end(), isOurs)) return Rewrapped::notOurs;
  const auto opens = [&](const std::string& key, const std::string& hexPass, Secret& password) {
    return passwordUnder(key, hexPass, password.text) && archive::opensContent(archive, password.text);
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
      archive::replaceMetadata(archive, stamp, change.metadata, password.text,
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

std::size_t CryptoSyncCopyHandler::rewrapAll(const KeyChange& change, std::vector<fs::path> archives,
                                             const ArchiveProgress& progress) {
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
      if (result == Rewrapped::failed) failed.push_back(archive);
      if (result != Rewrapped::failed) tell(result == Rewrapped::notOurs ? L"kept" : L"rewrap", archive);
    }
    archives.swap(failed);
  }
  for (const fs::path& archive : archives) tell(L"failed", archive);
  return archives.size();
}

bool CryptoSyncCopyHandler::changeAssetKey(const std::wstring& assetId, const std::wstring& newKey,
                                           const ArchiveProgress& progress) {
  beginOperation();
  const Secret text(utf8(newKey));
  const std::string id = utf8(assetId);
  if (!AssetKeys::isValidId(id) || text.text.empty() || tempFolder_.empty()) {
    HANDLER_ERROR("key not changed: empty, the asset id cannot be used, or there is no Temp folder");
    return false;
  }
  if (namesAreEncrypted()) {
    HANDLER_ERROR("key not changed: file names are encrypted under it as well");
    if (services_.notify)
      services_.notify(L"ERROR", L"The key cannot be changed while file names are encrypted", std::wstring());
    return false;
  }
  const TempArea area(tempFolder_, this);
  const KeyChange change{id, text.text, area.path() / kMetadataEntry};
  HANDLER_INFO("changing the key of asset %s", id.c_str());
  keys_.change(id, text.text);
  tryAgainWith(id);
  std::vector<fs::path> archives;
  const bool whole = listArchives(archives);
  const std::size_t failed = rewrapAll(change, std::move(archives), progress);
  HANDLER_INFO("key of asset %s changed, %lu archives failed", id.c_str(), static_cast<unsigned long>(failed));
  if (whole && failed == 0) {
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
