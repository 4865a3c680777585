// SPDX-License-Identifier: Apache-2.0
// Copies through the handler, and the look at contents that a tie needs.
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/TempArea.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr std::size_t kCompareBytes = 256 * 1024;

}  // namespace

const wchar_t* const SyncPair::kNoFile = L"a link, or something else that is no file, stands in its place";

// Without the paths: those in the Temp folder differ each time, and the host would be told anew in each cycle.
std::wstring SyncPair::reasonOf(const boost::system::error_code& error) {
  std::wstring reason;
  const std::string text = error.message();
  const bool known = platform::wideFromUtf8(text, reason) || platform::wideFromNarrow(text.c_str(), reason);
  return known && !reason.empty() ? reason : L"a file could not be accessed";
}

// One attempt. `again`: a file could not be accessed, for a reason that may pass soon.
CopyOutcome SyncPair::copyOnce(const std::wstring& srcFile, const std::wstring& destFile, const CopyGuard* guard,
                               bool& again) {
  again = false;
  copyProblem_.clear();
  sourceIsDamaged_ = false;
  PAIR_DEBUG_OF("doCopy", "srcFile = %s", utf8(srcFile).c_str());
  PAIR_DEBUG_OF("doCopy", "destFile = %s", utf8(destFile).c_str());
  if (platform::stampOf(platform::pathOf(srcFile)).kind == platform::Kind::missing) {
    PAIR_INFO_OF("doCopy", "File not found: %s", utf8(srcFile).c_str());
    return {};
  }
  if (platform::isLocked(platform::pathOf(srcFile))) {
    PAIR_INFO_OF("doCopy", "File locked: %s", utf8(srcFile).c_str());
    copyProblem_ = L"in use by another program";
    return {};
  }
  try {
    const CopyOutcome outcome = handler_->copyGuarded(platform::pathOf(srcFile), platform::pathOf(destFile), guard);
    sourceIsDamaged_ = outcome.result == CopyOutcome::Result::damaged;
    const bool copied = outcome.result == CopyOutcome::Result::done || outcome.result == CopyOutcome::Result::settled;
    if (!copied) PAIR_ERROR_OF("doCopy", "copyHandler copy failed for %s", utf8(srcFile).c_str());
    if (!copied) copyProblem_ = outcome.problem;
    return outcome;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR_OF("doCopy", "File access issue: %s", utf8(srcFile).c_str());
    PAIR_ERROR_OF("doCopy", "%s", error.what());
    copyProblem_ = reasonOf(error.code());
    again = platform::mayPassSoon(error.code());
    return {};
  }
}

bool SyncPair::doCopy(std::wstring srcFile, std::wstring destFile, int retries, std::wstring* written) {
  for (;;) {
    bool again = false;
    const CopyOutcome outcome = copyOnce(srcFile, destFile, nullptr, again);
    if (written) *written = outcome.written;
    if (outcome.result == CopyOutcome::Result::done || outcome.result == CopyOutcome::Result::settled) return true;
    if (!again) return false;
    if (--retries <= 0) {
      PAIR_ERROR("Out of retries");
      return false;
    }
    sleepWithCheck(4, 1000);
  }
}

void SyncPair::touch(std::wstring path, std::int64_t timestamp) {
  if (path.empty()) {
    PAIR_ERROR("path is empty");
    return;
  }
  if (timestamp <= 0) {
    PAIR_ERROR("bad timestamp");
    return;
  }
  platform::setLastWriteTime(platform::pathOf(path), timestamp * 1000000000);
}

// The hash covers only the beginning of a large file.
bool SyncPair::sameContent(const std::wstring& a, const std::wstring& b) {
  if (generateFileHash(a) != generateFileHash(b)) return false;
  platform::File first(platform::pathOf(a), platform::File::Mode::read);
  platform::File second(platform::pathOf(b), platform::File::Mode::read);
  if (first.size() != second.size()) return false;
  std::vector<char> left(kCompareBytes);
  std::vector<char> right(kCompareBytes);
  for (;;) {
    interruption_->check();
    const std::size_t count = first.read(left.data(), left.size());
    if (second.read(right.data(), right.size()) != count) return false;
    if (count == 0) return true;
    if (!std::equal(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(count), right.begin())) return false;
  }
}

SyncPair::Comparison SyncPair::isFileConflictCopy(const std::wstring& key, const SyncObject& src,
                                                  const SyncObject& dest, bool fromInside) {
  PAIR_DEBUG("src.timestamp == dest.timestamp (conflict!)");
  if (fromInside) {
    PAIR_DEBUG("source folder\n");
    PAIR_DEBUG("conflict check on soSrc->fullPath=%s", utf8(src.fullPath).c_str());
  } else {
    PAIR_DEBUG("dest folder");
  }
  std::unique_ptr<TempArea> area;
  std::wstring guard;
  const platform::FileStamp archive = stampUnderName(dest.fullPath);
  const Opened opened = openArchive(dest.fullPath, area, guard);
  if (opened == Opened::lacksKey) {
    noteGivenUp(key, dest.fullPath, dest.timestamp);
    return Comparison::same;
  }
  if (opened != Opened::yes || !isAsScanned(archive, dest)) {
    if (!fromInside) PAIR_ERROR("Error copying to temp file ");
    if (fromInside)
      PAIR_ERROR("Error copying to temp file for conflict check on soDest->fullPath=%s", utf8(dest.fullPath).c_str());
    return Comparison::unknown;
  }
  waitOutRunningSecond(stampUnderName(src.fullPath));
  const platform::FileStamp before = stampUnderName(src.fullPath);
  bool same = false;
  try {
    same = sameContent(src.fullPath, guard);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    return Comparison::unknown;
  }
  if (!isAsScanned(before, src) || !stampUnderName(src.fullPath).sameContent(before)) {
    noteChanging(src.fullPath);
    return Comparison::unknown;
  }
  if (!same) return Comparison::different;
  PAIR_INFO("Content is identical for %s and %s", utf8(src.fullPath).c_str(), utf8(dest.fullPath).c_str());
  recordAs(srcStateList, src.fullPath, before);
  recordAs(destStateList, dest.fullPath, archive);
  handler_->foundInSync(src.fullPath);
  waiting_.forget(src.fullPath);
  waiting_.forget(dest.fullPath);
  refreshParent(key);
  ++successfulEvents_;
  return Comparison::same;
}

}  // namespace Kelta
