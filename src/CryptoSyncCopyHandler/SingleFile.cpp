// SPDX-License-Identifier: Apache-2.0
// One file at a time, wherever it lies, by the way of all copies.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {

namespace fs = boost::filesystem;

// A path that leads into the pair by a link, or is spelled in another way, is given the pair's own spelling, by which
// all that follows tells the sides apart. False when it cannot be told where it leads.
bool CryptoSyncCopyHandler::spellAsPair(fs::path& path) {
  const std::wstring given = platform::wideOf(path.generic_path());
  std::wstring text;
  // A backslash that is left is part of a name, which has no generic form.
  if (given.find(L'\\') == std::wstring::npos && canonicalForm(given, text))
    path = platform::pathOf(spelledBelow(outsideFolder_, spelledBelow(insideFolder_, text)));
  if (isBelow(text, insideFolder_) || isBelow(text, outsideFolder_)) return true;
  boost::system::error_code error;
  fs::path folder = platform::realFolder(path.parent_path(), error);
  if (error) HANDLER_ERROR("cannot tell where it leads: %s: %s", utf8(path).c_str(), error.message().c_str());
  fs::path rest = path.filename();
  for (; !error && folder.has_relative_path(); folder = folder.parent_path()) {
    for (const std::wstring& root : {insideFolder_, outsideFolder_}) {
      if (root.empty() || !platform::sameEntry(folder, platform::pathOf(root))) continue;
      path = platform::pathOf(root) / rest;
      return true;
    }
    rest = folder.filename() / rest;
  }
  return !error;
}

// Names the job's target and its root: one of the pair's folders, or else the folder that holds it.
bool CryptoSyncCopyHandler::aimAt(CopyJob& job, const fs::path& dest, const std::wstring& root) {
  if (!platform::wideOf(dest, job.target)) return false;
  job.target = genericForm(job.target);
  job.targetRoot = isBelow(job.target, root) ? root : parentOf(job.target);
  if (platform::canStandAsName(nameOf(job.target)) && !platform::sameEntry(job.source, platform::pathOf(job.target)))
    return true;
  HANDLER_ERROR("not a name to write to: %s", utf8(dest).c_str());
  return false;
}

std::wstring CryptoSyncCopyHandler::encryptSingle(fs::path src, fs::path dest) {
  beginOperation();
  if (!spellAsPair(src) || !spellAsPair(dest)) return L"failed";
  CopyJob job;
  job.source = src;
  fs::path archive = dest;
  if (!hasExtension(dest)) archive += ".kelta";
  if (!aimAt(job, archive, outsideFolder_) || isBelow(job.target, insideFolder_)) return L"failed";
  if (isBelow(job.target, outsideFolder_) && isReservedName(nameOf(job.target), false)) {
    HANDLER_ERROR("no name for an archive: %s", utf8(job.target).c_str());
    return L"failed";
  }
  const fs::path shared = isBelow(job.target, outsideFolder_) ? platform::pathOf(job.target) : src;
  try {
    if (mayEncrypt(job) && takeStamps(job, insideFolder_) && encryptTo(job, shared, std::wstring())) return L"encrypt";
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
    return L"failed";
  }
  return keys_.find(assetNow(shared)) ? L"failed" : L"no-key";
}

std::wstring CryptoSyncCopyHandler::decryptSingle(fs::path src, fs::path dest) {
  beginOperation();
  if (!spellAsPair(src) || !spellAsPair(dest)) return L"failed";
  CopyJob job;
  job.source = src;
  if (!aimAt(job, dest, insideFolder_)) return L"failed";
  const bool inside = isBelow(job.target, insideFolder_);
  if (isBelow(job.target, outsideFolder_) ||
      (inside && (hasExtension(dest) || isReservedName(nameOf(job.target), false)))) {
    HANDLER_ERROR("plain content does not belong there: %s", utf8(job.target).c_str());
    return L"failed";
  }
  try {
    SealedArchive archive;
    Secret password;
    if (!takeStamps(job, outsideFolder_)) return L"failed";
    const Opened opened = openArchive(job, archive, password.text);
    if (opened == Opened::noKey) return L"no-key";
    if (opened == Opened::yes && decryptTo(job, password.text)) return L"decrypt";
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
  return L"failed";
}

}  // namespace Kelta
