// SPDX-License-Identifier: Apache-2.0
// A file changed on both sides at the same time. The Outside version keeps the plain name, since other devices have it
// already; the Inside version moves to a conflict name, under which it reaches every device:
//
//     1  the Outside version is decrypted into the Temp folder
//     2  x       → x.<suffix>               one rename on the Inside that replaces nothing
//     3  Temp    → x                        one rename; when it fails, step 2 is taken back
//     4  x.<suffix> → x.<suffix>.kelta      encrypted to the Outside; when it fails, the next scan finds an addition
//
// Ended behind any step, both versions are there, and the next scan sees nothing but additions and updates.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;

constexpr int kNameAttempts = 8;

bool isTaken(const std::wstring& path) { return platform::stampOf(platform::pathOf(path)).kind != Kind::missing; }

}  // namespace

/// Full paths; those of the Outside with the plain name, but for the archive's own.
struct CryptoSyncCopyHandler::Conflict {
  std::wstring inside;
  std::wstring outside;
  std::wstring archive;  ///< as it is named
  std::wstring insideCopy;
  std::wstring outsideCopy;
  platform::FileStamp stamp;  ///< of the Inside version when it began
};

// False, with the host told once, when the names are too long for a conflict copy.
bool CryptoSyncCopyHandler::nameConflict(Conflict& conflict) {
  for (int attempt = 1; attempt <= kNameAttempts; ++attempt) {
    const std::wstring suffix = newConflictSuffix(clock().nowSeconds());
    conflict.insideCopy = conflict.inside + suffix;
    conflict.outsideCopy = conflict.outside + suffix;
    const std::wstring archive = withMappedName(conflict.outsideCopy);
    if (!nameFits(archive) || !nameFits(conflict.insideCopy)) {
      quarantineOnce(platform::pathOf(conflict.inside), L"Path too long for a conflict copy");
      return false;
    }
    if (!archive.empty() && !isTaken(archive) && !isTaken(conflict.insideCopy)) return true;
  }
  HANDLER_ERROR("no free name for a conflict copy: %s", utf8(conflict.inside).c_str());
  return false;
}

bool CryptoSyncCopyHandler::planConflict(Conflict& conflict) {
  if (!isInsideFolder(conflict.inside) || !isOutsideFolder(conflict.outside) || tempFolder_.empty()) {
    HANDLER_ERROR("no conflict copy can be made of %s", utf8(conflict.inside).c_str());
    return false;
  }
  conflict.archive = conflict.outside;
  if (hasExtension(platform::pathOf(conflict.outside))) {
    conflict.outside = withMappedName(conflict.outside);
  } else {
    conflict.archive = archiveOf(conflict.outside);
  }
  if (conflict.outside.empty() || conflict.archive.empty()) return false;
  conflict.stamp = platform::stampOf(platform::pathOf(conflict.inside));
  if (conflict.stamp.kind == Kind::file && !isConflictName(conflict.inside)) return nameConflict(conflict);
  HANDLER_INFO("no conflict copy is made of %s", utf8(conflict.inside).c_str());
  return false;
}

bool CryptoSyncCopyHandler::moveAside(const Conflict& conflict) {
  const fs::path inside = platform::pathOf(conflict.inside);
  if (platform::isLocked(inside)) {
    HANDLER_INFO("in use by another program: %s", utf8(conflict.inside).c_str());
    return false;
  }
  if (!platform::stampOf(inside).sameContent(conflict.stamp)) {
    HANDLER_INFO("changed meanwhile, left as it is: %s", utf8(conflict.inside).c_str());
    return false;
  }
  return moveBelow(insideFolder_, conflict.inside, conflict.insideCopy);
}

// Puts the decrypted Outside version in the place that was just left.
bool CryptoSyncCopyHandler::fillPlace(const Conflict& conflict, const fs::path& decrypted) {
  try {
    CopyJob job;
    job.source = decrypted;
    job.sourceStamp = platform::stampOf(decrypted);
    job.target = conflict.inside;
    job.targetRoot = insideFolder_;
    if (placeInside(decrypted, job)) return true;
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
  const bool back = moveBelow(insideFolder_, conflict.insideCopy, conflict.inside);
  if (!back) HANDLER_INFO("a new file has taken the place of %s", utf8(conflict.inside).c_str());
  return !back;
}

void CryptoSyncCopyHandler::shareConflictCopy(const Conflict& conflict) {
  try {
    if (copyFile(platform::pathOf(conflict.insideCopy), platform::pathOf(conflict.outsideCopy)).first) return;
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
  HANDLER_ERROR("left for the next cycle: %s", utf8(conflict.insideCopy).c_str());
}

std::vector<std::wstring> CryptoSyncCopyHandler::conflictCopy(std::wstring& src, std::wstring& dest) {
  HANDLER_DEBUG("srcFile = %s", utf8(src).c_str());
  HANDLER_DEBUG("destFile = %s", utf8(dest).c_str());
  const bool sourceIsInside = isInsideFolder(src);
  Conflict conflict;
  conflict.inside = genericForm(sourceIsInside ? src : dest);
  conflict.outside = genericForm(sourceIsInside ? dest : src);
  try {
    if (!planConflict(conflict)) return {};
    const TempArea area(tempFolder_, this);
    const fs::path decrypted = area.path() / "content";
    const auto copied = copyFile(platform::pathOf(conflict.archive), decrypted);
    if (!copied.first || copied.second.empty() || !moveAside(conflict) || !fillPlace(conflict, decrypted)) return {};
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
    return {};
  }
  logActivity("decrypt", conflict.inside);
  shareConflictCopy(conflict);
  HANDLER_INFO("conflict copy made: %s", utf8(conflict.insideCopy).c_str());
  if (sourceIsInside) return {conflict.insideCopy, conflict.outsideCopy};
  return {conflict.outsideCopy, conflict.insideCopy};
}

}  // namespace Kelta
