// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/LastLook.h"

#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "base/Clock.h"
#include "platform/AtomicFile.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Spot;

const char kArchiveEnding[] = ".kelta";

// In this order: whoever has closed it in between has changed its stamp.
bool isAsJudged(const Spot& file, const platform::FileStamp& judged, platform::EntryId* id = nullptr) {
  if (file.folder.isOpenForWriting(file.name)) return false;
  const platform::Entry entry = file.look();
  if (id) *id = entry.id;
  return entry.stamp.sameContent(judged);
}

// Back to its place, or, where something new stands by now, beside it under a conflict name, or one that always fits.
void putBack(const Spot& file, const Spot& place) {
  const bool archive = place.name.extension() == kArchiveEnding;
  const fs::path plain = archive ? place.name.stem() : place.name;
  const std::int64_t now = Clock().nowSeconds();
  std::vector<fs::path> names{place.name};
  for (const fs::path& base : {plain, fs::path("kept")}) {
    names.push_back(platform::pathOf(conflictNameOf(platform::wideOf(base), now)));
    if (archive) names.back() += kArchiveEnding;
  }
  for (const fs::path& name : names) {
    try {
      if (file.folder.move(file.name, file.look().id, place.folder, name)) return;
    } catch (const fs::filesystem_error&) {  // too long, perhaps
    }
  }
}

// A name that the sweep of abandoned files leaves alone as long as this process runs.
class TemporaryName {
public:
  explicit TemporaryName(const platform::OpenFolder& folder)
      : name_(platform::temporaryName()), spot_{folder, fs::path(name_)} {}
  ~TemporaryName() { platform::forgetTemporaryName(name_); }
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  const Spot& spot() const { return spot_; }

private:
  std::string name_;
  Spot spot_;
};

// Puts back what an exchange brought to `fresh`.
void exchangeBack(const Spot& fresh, const Spot& target, const platform::FileStamp& own) {
  try {
    fresh.folder.exchange(fresh.name, fresh.look().id, target.folder, target.name);
  } catch (const fs::filesystem_error&) {  // ours is gone already
  }
  // Whoever saved once may have saved twice: then that is what came back.
  if (!fresh.look().stamp.sameContent(own)) putBack(fresh, target);
}

}  // namespace

bool replaceJudged(const Spot& fresh, const platform::EntryId& id, const Spot& target,
                   const platform::FileStamp& judged) {
  if (!isAsJudged(target, judged)) return false;
  const platform::FileStamp own = fresh.look().stamp;
  try {
    if (!fresh.folder.exchange(fresh.name, id, target.folder, target.name)) {
      fresh.folder.replace(fresh.name, id, target.folder, target.name);
      return true;
    }
  } catch (const fs::filesystem_error& error) {
    if (error.code() == boost::system::errc::no_such_file_or_directory) return false;
    throw;
  }
  if (isAsJudged(fresh, judged)) return true;
  exchangeBack(fresh, target, own);
  return false;
}

bool moveJudged(const Spot& from, const Spot& to, const platform::FileStamp& judged) {
  platform::EntryId id;
  if (!isAsJudged(from, judged, &id) || !from.folder.move(from.name, id, to.folder, to.name)) return false;
  if (isAsJudged(to, judged)) return true;
  putBack(to, from);
  return false;
}

bool removeJudged(const Spot& file, const platform::FileStamp& judged) {
  const TemporaryName taken(file.folder);
  if (!moveJudged(file, taken.spot(), judged)) return false;
  try {
    taken.spot().folder.removeFile(taken.spot().name, taken.spot().look().id);
    return true;
  } catch (...) {
    putBack(taken.spot(), file);
    throw;
  }
}

}  // namespace Kelta
