// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

// 32 random bytes as hexadecimal text, since raw bytes could hold a NUL. Empty when there were none.
std::string newArchivePassword() {
  unsigned char* bytes = nullptr;
  std::string password;
  if (CryptoHelper().genRandomBuffer(&bytes, int{kPasswordBytes})) {
    password = hexOf(bytes, kPasswordBytes);
    Secret raw(std::string(kPasswordBytes, '\0'));
    std::copy(raw.text.begin(), raw.text.end(), bytes);
  }
  std::free(bytes);
  return password;
}

}  // namespace

std::pair<bool, std::wstring> CryptoSyncCopyHandler::copyEncrypt(fs::path src, fs::path dest) {
  CopyJob job;
  const bool done = encryptJob(job, src, dest);
  return {done, job.outcome.written};
}

bool CryptoSyncCopyHandler::encryptJob(CopyJob& job, const fs::path& src, const fs::path& dest) {
  HANDLER_DEBUG_OF("copyEncrypt", "src = %s", utf8(src).c_str());
  HANDLER_DEBUG_OF("copyEncrypt", "dest = %s", utf8(dest).c_str());
  job.source = src;
  job.targetRoot = outsideFolder_;
  platform::wideOf(dest, job.target);
  job.target = genericForm(job.target);
  const std::wstring plainTarget = hasExtension(dest) ? std::wstring() : job.target;
  if (!plainTarget.empty()) job.target = withMappedName(job.target);
  HANDLER_DEBUG_OF("copyEncrypt", "destActual = %s", utf8(job.target).c_str());
  if (job.target.empty()) {
    HANDLER_INFO_OF("copyEncrypt", "no key found for the name, can't encrypt for now");
    return false;
  }
  return targetFits(job) && mayEncrypt(job) && takeStamps(job, insideFolder_) && encryptTo(job, src, plainTarget);
}

// Encrypts for the asset of `shared`, the path that decides whose file it is; `plainTarget` is the plain path of the
// archive, or empty.
bool CryptoSyncCopyHandler::encryptTo(CopyJob& job, const fs::path& shared, const std::wstring& plainTarget) {
  const std::string assetId = assetNow(shared);
  HANDLER_DEBUG_OF("copyEncrypt", "assetid = %s", assetId.c_str());
  if (assetId.empty()) {
    HANDLER_ERROR_OF("copyEncrypt", "no asset to encrypt %s for", utf8(job.source).c_str());
    job.outcome.problem = L"\".sid\" of its folder, or of one above, names no key";
  }
  if (assetId.empty() || !mayUseShareOf(shared, genericForm(platform::wideOf(job.source)))) return false;
  if (!keyAvailable(assetId)) {
    job.outcome.problem = kNoContentKey;
    return false;
  }
  if (replacesUnread(job, plainTarget)) return false;
  const TempArea area(tempFolder_, this);
  const fs::path archive = area.path() / "archive.kelta";
  HANDLER_DEBUG_OF("copyEncrypt", "tempf = %s", utf8(archive).c_str());
  if (!packSource(job, assetId, area, archive) || !unchanged(job)) return false;
  if (assetNow(shared) != assetId) {
    HANDLER_INFO_OF("copyEncrypt", "its share changed while it was encrypted: %s", utf8(job.source).c_str());
    return false;
  }
  if (!place(archive, job)) return false;
  noteShareUse(shared);
  copySucceeded(job, L"Encrypted");
  return true;
}

bool CryptoSyncCopyHandler::mayEncrypt(const CopyJob& job) {
  if (platform::stampOf(job.source).kind == platform::Kind::missing) {
    HANDLER_INFO_OF("copyEncrypt", "not there: %s", utf8(job.source).c_str());
    return false;
  }
  if (hasExtension(job.source)) {
    HANDLER_INFO_OF("copyEncrypt", "won't sync Kelta file from Inside");
    return false;
  }
  return true;
}

bool CryptoSyncCopyHandler::keyAvailable(const std::string& assetId) {
  if (keys_.find(assetId) || askForKey(assetId)) return true;
  HANDLER_INFO_OF("copyEncrypt", "no key found, can't encrypt for now");
  return false;
}

// The archive of the plain path may stand under another form of its name as well, which the copy supersedes.
bool CryptoSyncCopyHandler::replacesUnread(const CopyJob& job, const std::wstring& plainTarget) {
  if (job.targetStamp.kind == platform::Kind::file && !mayGo(job.target)) return true;
  if (plainTarget.empty()) return false;
  for (const std::wstring& name : archiveNames(plainTarget)) {
    const std::wstring other = joinPath(parentOf(plainTarget), name);
    const bool there = platform::stampOf(platform::pathOf(other)).kind == platform::Kind::file;
    if (other != job.target && there && !mayGo(other)) return true;
  }
  return false;
}

// Whether an archive may be superseded: one that opens may. One that no key here opens holds something that nobody here
// has seen. What is damaged, or no archive of ours, is kept as it is.
bool CryptoSyncCopyHandler::mayGo(const std::wstring& archive) {
  SealedArchive sealed;
  Secret password;
  if (!readSealed(platform::pathOf(archive), sealed) || wrappedPasswords(sealed.meta).empty())
    return keepAsItIs(archive);
  if (unseal(sealed, password.text)) return true;
  HANDLER_ERROR("the archive there cannot be opened here, not replaced: %s", utf8(archive).c_str());
  return false;
}

bool CryptoSyncCopyHandler::packSource(const CopyJob& job, const std::string& assetId, const TempArea& area,
                                       const fs::path& archive) {
  const std::int64_t start = clock().nowMicroseconds();
  const auto elapsed = [&] { return static_cast<long>((clock().nowMicroseconds() - start) / 1000); };
  Secret password(newArchivePassword());
  HANDLER_DEBUG_OF("copyEncrypt", "archPass len = %d", static_cast<int>(password.text.size()));
  if (password.text.empty()) return false;
  HANDLER_DEBUG_OF("copyEncrypt", "TIMER generated random key in %ld [ms]", elapsed());

  const std::string* const installed = keys_.find(assetId);
  if (!installed) return false;  // the host took it back meanwhile
  Secret key(*installed);
  std::string hexPass = encryptArchivePassword(password.text, key.text);
  if (hexPass.empty()) return false;
  std::string text = metadataText(assetId, hexPass);
  archive::PackRequest request;
  request.source = job.source;
  request.target = archive;
  request.password = password.text;
  request.metadata = area.path() / kMetadataEntry;
  request.compress = compressionFlag_ != 0;
  HANDLER_DEBUG_OF("copyEncrypt", "metaf = %s", utf8(request.metadata).c_str());
  bool packed = false;
  try {
    writeFile(platform::wideOf(request.metadata), &text[0]);
    archive::pack(request, [this](std::uint64_t) { interruption().check(); });
    packed = platform::stampOf(archive).kind == platform::Kind::file;
  } catch (const zip::ArchiveError& error) {
    wipe(request.password);
    return archiveFailed(error, archive);
  } catch (...) {
    wipe(request.password);
    throw;
  }
  wipe(request.password);
  HANDLER_DEBUG_OF("copyEncrypt", "TIMER compress/encrypted %s in %ld [ms]", utf8(job.source).c_str(), elapsed());
  return packed;
}

}  // namespace Kelta
