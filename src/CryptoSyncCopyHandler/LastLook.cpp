// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/LastLook.h"

#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "base/Clock.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

const char kArchiveEnding[] = ".kelta";

bool isAsJudged(const fs::path& file, const platform::FileStamp& judged) {
  // In this order: whoever has closed it in between has changed its stamp.
  return !platform::isOpenForWriting(file) && platform::stampOf(file).sameContent(judged);
}

bool moveIfFree(const fs::path& from, const fs::path& to) try {
  return platform::moveFile(from, to);
} catch (const fs::filesystem_error&) {
  return false;
}

// Back to its place, or, where something new stands by now, beside it under a conflict name, or one that always fits.
void putBack(const fs::path& file, const fs::path& place) {
  const bool archive = place.extension() == kArchiveEnding;
  fs::path plain = place;
  if (archive) plain.replace_extension();
  const std::int64_t now = Clock().nowSeconds();
  std::vector<fs::path> names{place};
  for (const fs::path& base : {plain, place.parent_path() / "kept"}) {
    names.push_back(platform::pathOf(conflictNameOf(genericForm(platform::wideOf(base)), now)));
    if (archive) names.back() += kArchiveEnding;
  }
  for (const fs::path& name : names) {
    if (moveIfFree(file, name)) return;
  }
}

// A name that the sweep of abandoned files leaves alone as long as this process runs.
class TemporaryName {
public:
  explicit TemporaryName(const fs::path& folder) : name_(platform::temporaryName()), path_(folder / name_) {}
  ~TemporaryName() { platform::forgetTemporaryName(name_); }
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  const fs::path& path() const { return path_; }

private:
  std::string name_;
  fs::path path_;
};

}  // namespace

bool replaceJudged(const fs::path& fresh, const fs::path& target, const platform::FileStamp& judged) {
  if (!isAsJudged(target, judged)) return false;
  const platform::FileStamp own = platform::stampOf(fresh);
  try {
    if (!platform::exchangeFiles(fresh, target)) {
      platform::replaceFile(fresh, target);
      return true;
    }
  } catch (const fs::filesystem_error& error) {
    if (error.code() == boost::system::errc::no_such_file_or_directory) return false;
    throw;
  }
  if (isAsJudged(fresh, judged)) return true;
  try {
    platform::exchangeFiles(fresh, target);
  } catch (const fs::filesystem_error&) {  // ours is gone already
  }
  // Whoever saved once may have saved twice: then that is what came back.
  if (!platform::stampOf(fresh).sameContent(own)) putBack(fresh, target);
  return false;
}

bool moveJudged(const fs::path& from, const fs::path& to, const platform::FileStamp& judged) {
  if (!isAsJudged(from, judged) || !platform::moveFile(from, to)) return false;
  if (isAsJudged(to, judged)) return true;
  putBack(to, from);
  return false;
}

bool removeJudged(const fs::path& file, const platform::FileStamp& judged) {
  const TemporaryName taken(file.parent_path());
  if (!moveJudged(file, taken.path(), judged)) return false;
  try {
    platform::removeEntry(taken.path());
    return true;
  } catch (...) {
    putBack(taken.path(), file);
    throw;
  }
}

}  // namespace Kelta
