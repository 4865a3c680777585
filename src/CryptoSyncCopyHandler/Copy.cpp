// SPDX-License-Identifier: Apache-2.0
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {

namespace fs = boost::filesystem;
using platform::Kind;

std::pair<bool, std::wstring> CryptoSyncCopyHandler::copyFile(fs::path src, fs::path dest) {
  HANDLER_DEBUG("copy [%s] to [%s]", utf8(src).c_str(), utf8(dest).c_str());
  CopyJob job;
  const bool done = copyJob(job, src, dest);
  return {done, done ? job.outcome.written : std::wstring()};
}

CopyOutcome CryptoSyncCopyHandler::copyGuarded(fs::path src, fs::path dest, const CopyGuard* guard) {
  HANDLER_DEBUG_OF("copyFile", "copy [%s] to [%s]", utf8(src).c_str(), utf8(dest).c_str());
  CopyJob job;
  job.guard = guard;
  copyJob(job, src, dest);
  return job.outcome;
}

bool CryptoSyncCopyHandler::copyJob(CopyJob& job, const fs::path& src, const fs::path& dest) {
  interruption().check();
  sourceIsDamaged_ = endChanged_ = false;
  std::wstring source;
  platform::wideOf(src, source);
  const bool encrypt = encrypting_ = isInsideFolder(source);
  const bool done = encrypt ? encryptJob(job, src, dest) : decryptJob(job, src, dest);
  if (sourceIsDamaged_) job.outcome.result = CopyOutcome::Result::damaged;
  if (endChanged_) job.outcome.result = CopyOutcome::Result::changed;
  if (!done) return false;
  job.outcome.result = job.outcome.written.empty() ? CopyOutcome::Result::settled : CopyOutcome::Result::done;
  const bool forTheUser = !job.outcome.written.empty() && !isBelow(job.outcome.written, tempFolder_);
  if (forTheUser) logActivity(encrypt ? "encrypt" : "decrypt", job.outcome.written);
  return true;
}

bool CryptoSyncCopyHandler::copyDir(fs::path src, fs::path dest) {
  HANDLER_DEBUG("dest: %s", utf8(dest).c_str());
  CopyJob job;
  job.source = src;
  std::wstring target;
  if (!platform::wideOf(dest, target)) return false;
  job.target = folderForm(target);
  if (platform::stampOf(src).kind != Kind::folder) return false;
  if (!targetFits(job)) return false;
  const std::wstring& root = isBelow(job.target, insideFolder_) ? insideFolder_ : outsideFolder_;
  const Way way = makeFolders(root, job.target);
  if (way.reach == Reach::there) return true;
  HANDLER_ERROR("%s", way.reason.c_str());
  return false;
}

void CryptoSyncCopyHandler::sleepWithCheck(int interval, long ms) {
  HANDLER_DEBUG("interval=%d, ms=%lu", interval, static_cast<unsigned long>(ms));
  for (int i = 0; i < interval; ++i) clock().wait(ms, interruption());
}

// A target over a limit, or of a name that cannot stand there, quarantines the source; the host is told once.
bool CryptoSyncCopyHandler::targetFits(const CopyJob& job) {
  if (!platform::canStandAsName(nameOf(job.target))) {
    HANDLER_ERROR("not a name for this system: %s", utf8(job.target).c_str());
    quarantineOnce(job.source, L"Name cannot be stored");
    return false;
  }
  // The limit is for what the user sees.
  if (nameFits(job.target) || isBelow(job.target, tempFolder_)) return true;
  HANDLER_ERROR("Path too long: %s", utf8(job.target).c_str());
  quarantineOnce(job.source, L"Path too long");
  return false;
}

// Whether both ends are what the caller has judged.
bool CryptoSyncCopyHandler::isAsJudged(const CopyJob& job) {
  const auto target = job.guard->targets.find(job.target);
  const bool known = target == job.guard->targets.end() ? job.targetStamp.kind == Kind::missing
                                                        : job.targetStamp.sameContent(target->second);
  if (known && job.sourceStamp.sameContent(job.guard->source)) return true;
  HANDLER_INFO("changed meanwhile, left as it is: %s", utf8(known ? job.source : platform::pathOf(job.target)).c_str());
  endChanged_ = true;
  return false;
}

// Looks at both ends before anything is read. `sourceRoot` is the source's side: no link may lead out of it.
bool CryptoSyncCopyHandler::takeStamps(CopyJob& job, const std::wstring& sourceRoot) {
  std::wstring source;
  if (!platform::wideOf(job.source, source)) {
    HANDLER_ERROR("not a name that can be stored: %s", utf8(job.source).c_str());
    return false;
  }
  if (tempFolder_.empty()) {
    HANDLER_ERROR("no Temp folder was set");
    return false;
  }
  source = genericForm(source);
  const bool ofPair = isBelow(source, sourceRoot);
  const Way from = ofPair ? reachFolder(sourceRoot, parentOf(source)) : Way{Reach::there, {}, {}};
  const Way to = reachFolder(job.targetRoot, parentOf(job.target));
  if (from.reach != Reach::there || to.reach == Reach::refused) {
    const std::string& reason = (from.reach != Reach::there ? from : to).reason;
    HANDLER_ERROR("%s", reason.c_str());
    platform::wideFromUtf8(reason, job.outcome.problem);
    return false;
  }
  job.sourceStamp = platform::stampOf(job.source);
  job.targetStamp = platform::stampOf(platform::pathOf(job.target));
  if (job.sourceStamp.kind == Kind::unknown || job.targetStamp.kind == Kind::unknown) {
    throw fs::filesystem_error("Cannot look at a file", job.source, platform::pathOf(job.target),
                               make_error_code(boost::system::errc::permission_denied));
  }
  if (job.guard && !isAsJudged(job)) return false;
  if (job.sourceStamp.kind != Kind::file) {
    HANDLER_ERROR("not an ordinary file: %s", utf8(job.source).c_str());
    return false;
  }
  if (job.targetStamp.kind == Kind::file || job.targetStamp.kind == Kind::missing) return true;
  HANDLER_ERROR("something else stands in the file's place: %s", utf8(job.target).c_str());
  return false;
}

bool CryptoSyncCopyHandler::unchanged(const CopyJob& job) {
  if (!platform::stampOf(job.source).sameContent(job.sourceStamp)) {
    HANDLER_INFO("changed while it was copied: %s", utf8(job.source).c_str());
    endChanged_ = true;
    return false;
  }
  return targetUnchanged(job);
}

// The one place where a failed archive operation is judged: no access is told with the system's reason. An archive that
// another program made, or one in a form that we cannot read, may well hold something. "Damaged" is what shows before
// any key is used, or in a content whose password was right: a key that does not open it is no damage.
bool CryptoSyncCopyHandler::archiveFailed(const zip::ArchiveError& error, const fs::path& archive) {
  if (error.failure() == zip::ArchiveFailure::foreign) {
    quarantineOnce(archive, L"Holds more than an archive of a pair may hold");
    return false;
  }
  HANDLER_ERROR_OF("copyDecrypt", "Couldn't decrypt archive %s", utf8(archive).c_str());
  HANDLER_ERROR("%s", error.what());
  endChanged_ = error.failure() == zip::ArchiveFailure::changed;
  if (error.failure() == zip::ArchiveFailure::cannotRead || error.failure() == zip::ArchiveFailure::cannotWrite) {
    const boost::system::error_code unknown = make_error_code(boost::system::errc::io_error);
    throw fs::filesystem_error(error.what(), archive, error.cause() ? error.cause() : unknown);
  }
  sourceIsDamaged_ =
      error.failure() == zip::ArchiveFailure::notAnArchive || error.failure() == zip::ArchiveFailure::damaged;
  return false;
}

void CryptoSyncCopyHandler::copySucceeded(const CopyJob& job, const wchar_t* verb) {
  ifQuarantinedClear(job.source);
  ifQuarantinedClear(platform::pathOf(job.target));
  // A copy into the Temp folder is only for the engine's own eyes.
  const bool intoPair = job.targetRoot == insideFolder_ || job.targetRoot == outsideFolder_;
  const std::wstring name =
      job.targetRoot == outsideFolder_ ? platform::wideOf(job.source.filename()) : nameOf(job.target);
  if (intoPair && services_.notifyDone) services_.notifyDone(verb + (L' ' + jsonEscaped(name)) + L" successfully");
}

void CryptoSyncCopyHandler::logActivity(const char* operation, const std::wstring& path) {
  log::writePlain(log::activity(), isoTime(clock().nowSeconds()) + "\t" + operation + "\t" + utf8(path));
}

}  // namespace Kelta
