// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kKeyRetrySeconds = 90;

std::wstring tableKey(const CopyJob& job) { return genericForm(platform::wideOf(job.source)); }

}  // namespace

std::pair<bool, std::wstring> CryptoSyncCopyHandler::copyDecrypt(fs::path src, fs::path dest) {
  CopyJob job;
  const bool done = decryptJob(job, src, dest);
  return {done, job.outcome.written};
}

bool CryptoSyncCopyHandler::decryptJob(CopyJob& job, const fs::path& src, const fs::path& dest) {
  HANDLER_DEBUG_OF("copyDecrypt", "src = %s", utf8(src).c_str());
  HANDLER_DEBUG_OF("copyDecrypt", "dest = %s", utf8(dest).c_str());
  job.source = src;
  platform::wideOf(dest, job.target);
  job.target = genericForm(job.target);
  if (hasExtension(dest)) job.target = withMappedName(job.target);
  job.targetRoot = isBelow(job.target, tempFolder_) ? tempFolder_ : insideFolder_;
  HANDLER_DEBUG_OF("copyDecrypt", "destActual = %s", utf8(job.target).c_str());
  HANDLER_DEBUG_OF("copyDecrypt", "destfn = %s", utf8(nameOf(job.target)).c_str());
  if (job.target.empty()) {
    HANDLER_INFO_OF("copyDecrypt", "the name cannot be read now: %s", utf8(src).c_str());
    return false;
  }
  if (!targetFits(job) || !mayDecrypt(job) || !takeStamps(job, outsideFolder_)) return false;

  SealedArchive archive;
  Secret password;
  const Opened opened = openArchive(job, archive, password.text);
  if (opened == Opened::noKey) return giveUpWithoutKey(job, archive.meta);
  if (opened != Opened::yes || !mayOpenHere(job, archive, password.text) || !decryptTo(job, password.text))
    return false;
  decryptFailures_.erase(tableKey(job));
  const std::string asset = getAssetForPath(src);
  for (const auto& member : wrappedPasswords(archive.meta)) {
    if (member.first == asset && job.targetRoot == insideFolder_) noteShareUse(src);
  }
  return true;
}

bool CryptoSyncCopyHandler::decryptTo(CopyJob& job, const std::string& password) {
  const TempArea area(tempFolder_, this);
  const fs::path folder = area.path() / "content";
  HANDLER_DEBUG_OF("copyDecrypt", "temp. path (tempd) = %s", utf8(folder).c_str());
  if (!unpackSource(job, password, folder)) return false;
  const fs::path content = folder / archive::kContentEntry;
  HANDLER_DEBUG_OF("copyDecrypt", "tempf = %s", utf8(content).c_str());
  if (platform::stampOf(content).kind != platform::Kind::file) {
    HANDLER_ERROR_OF("copyDecrypt", "tempf doesn't exist");
    return false;
  }
  if (!unchanged(job) || !placeInside(content, job)) return false;
  copySucceeded(job, L"Decrypted");
  return true;
}

bool CryptoSyncCopyHandler::mayDecrypt(const CopyJob& job) {
  if (platform::stampOf(job.source).kind == platform::Kind::missing) {
    decryptFailures_.erase(tableKey(job));
    HANDLER_INFO_OF("copyDecrypt", "not there: %s", utf8(job.source).c_str());
    return false;
  }
  // A name that the Inside never gives away must not come back to it either: it could not be told from another
  // archive's plain name ("x.kelta.kelta"), or would stand in for one of our own markers.
  const fs::path plain = platform::pathOf(untransformName(genericForm(platform::wideOf(job.source))));
  if (!job.target.empty() && !plain.empty() && !hasExtension(plain) && !hasExtension(platform::pathOf(job.target)) &&
      !isReservedName(nameOf(job.target), false))
    return true;
  HANDLER_ERROR_OF("copyDecrypt", "not a name for the Inside: %s", utf8(job.source).c_str());
  return false;
}

CryptoSyncCopyHandler::Opened CryptoSyncCopyHandler::openArchive(const CopyJob& job, SealedArchive& archive,
                                                                 std::string& password) {
  platform::File(job.source, platform::File::Mode::read).close();  // what cannot be read now shows as such
  if (!readSealed(job.source, archive)) {
    HANDLER_ERROR_OF("copyDecrypt", "Couldn't decrypt archive %s", utf8(job.source).c_str());
    return Opened::unreadable;
  }
  if (unseal(archive, password)) return Opened::yes;
  HANDLER_INFO_OF("copyDecrypt", "no key found, can't decrypt at the moment");
  return Opened::noKey;
}

// An archive without a key fails; after a while it need not be tried again.
bool CryptoSyncCopyHandler::giveUpWithoutKey(CopyJob& job, const boost::property_tree::ptree& meta) {
  const std::int64_t now = clock().nowSeconds();
  DecryptFailure& failure = decryptFailures_.emplace(tableKey(job), DecryptFailure{now, {}}).first->second;
  std::int64_t& first = failure.first;
  failure.assets.clear();
  for (const auto& member : wrappedPasswords(meta)) failure.assets.insert(member.first);
  if (first > now) first = now;  // the clock was set back
  job.outcome.problem = kNoContentKey;
  if (now - first <= kKeyRetrySeconds) return false;
  HANDLER_ERROR_OF("copyDecrypt", "Decryption failures have exceeded retry threshold for [%s] Marking as 'resolved'.",
                   utf8(job.source).c_str());
  recordQuarantine(job.source, L"No key to decrypt, over retry threshold", L"no-key");
  notifySync(L"Quarantine for " + jsonEscaped(shownName(job.source)));
  return true;
}

bool CryptoSyncCopyHandler::unpackSource(const CopyJob& job, const std::string& password, const fs::path& folder) {
  const std::int64_t start = clock().nowMicroseconds();
  try {
    archive::unpackContent(job.source, folder, password, [this](std::uint64_t) { interruption().check(); });
  } catch (const zip::ArchiveError& error) {
    return archiveFailed(error, job.source);
  }
  const auto elapsed = static_cast<long>((clock().nowMicroseconds() - start) / 1000);
  HANDLER_DEBUG_OF("copyDecrypt", "TIMER decrypted %s in %ld [ms]", utf8(job.source).c_str(), elapsed);
  return true;
}

}  // namespace Kelta
