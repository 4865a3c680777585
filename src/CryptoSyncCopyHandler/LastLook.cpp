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

// Removes what is known, and puts anything else back, also what a program is about to write to.
void settle(const Spot& file, const Spot& place, const platform::FileStamp& known) {
  const platform::Entry entry = file.look();
  if (entry.stamp.kind == platform::Kind::missing) return;
  if (file.folder.isOpenForWriting(file.name) || !file.look().stamp.sameContent(known)) return putBack(file, place);
  try {
    file.folder.removeFile(file.name, entry.id);
  } catch (const fs::filesystem_error&) {  // a later scan will
  }
}

// The name beside a file for what is taken out of its place. It is left alone as long as this process runs.
class Aside {
public:
  Aside(const Spot& place, const platform::FileStamp& judged, const platform::FileStamp& fresh)
      : temporary_(platform::temporaryName()), spot_{place.folder, nameFor(place, judged, fresh)} {}
  ~Aside() { platform::forgetTemporaryName(temporary_); }
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;
  const Spot& spot() const { return spot_; }

private:
  fs::path nameFor(const Spot& place, const platform::FileStamp& judged, const platform::FileStamp& fresh) const {
    const std::string name = platform::displacedName(temporary_, {judged, fresh, platform::utf8(place.name)});
    std::wstring wide;
    platform::wideFromUtf8(name, wide);
    return platform::pathOf(wide);
  }

  std::string temporary_;
  Spot spot_;
};

// `fresh` and `target` change places. False, with everything back, when what stood there is not as judged.
bool exchangeJudged(const Spot& fresh, const platform::EntryId& id, const Spot& target,
                    const platform::FileStamp& judged) {
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
  try {
    fresh.folder.exchange(fresh.name, fresh.look().id, target.folder, target.name);
  } catch (const fs::filesystem_error&) {  // ours is gone already
  }
  return false;
}

}  // namespace

// Whoever saved once may have saved twice: then what came back is no more what went.
bool replaceJudged(const Spot& fresh, const platform::EntryId& id, const Spot& target,
                   const platform::FileStamp& judged) {
  if (!isAsJudged(target, judged)) return false;
  const platform::FileStamp own = fresh.look().stamp;
  const Aside aside(target, judged, own);
  if (!fresh.folder.move(fresh.name, id, target.folder, aside.spot().name)) return false;
  bool replaced = false;
  try {
    replaced = exchangeJudged(aside.spot(), id, target, judged);
  } catch (...) {
    settle(aside.spot(), target, own);
    throw;
  }
  settle(aside.spot(), target, replaced ? judged : own);
  return replaced;
}

bool moveJudged(const Spot& from, const Spot& to, const platform::FileStamp& judged) {
  platform::EntryId id;
  if (!isAsJudged(from, judged, &id) || !from.folder.move(from.name, id, to.folder, to.name)) return false;
  if (isAsJudged(to, judged)) return true;
  putBack(to, from);
  return false;
}

bool removeJudged(const Spot& file, const platform::FileStamp& judged) {
  const Aside aside(file, judged, judged);
  if (!moveJudged(file, aside.spot(), judged)) return false;
  try {
    aside.spot().folder.removeFile(aside.spot().name, aside.spot().look().id);
    return true;
  } catch (...) {
    putBack(aside.spot(), file);
    throw;
  }
}

void settleDisplaced(const Spot& file) {
  platform::Displaced displaced;
  if (!platform::readDisplaced(platform::utf8(file.name), displaced)) return;
  if (file.look().stamp.kind != platform::Kind::file || file.folder.isOpenForWriting(file.name)) return;
  const platform::FileStamp now = file.look().stamp;
  const bool known = now.size == 0 || now.sameContent(displaced.judged) || now.sameContent(displaced.fresh);
  std::wstring place;
  platform::wideFromUtf8(displaced.place, place);
  settle(file, {file.folder, platform::pathOf(place)}, known ? now : platform::FileStamp());
}

}  // namespace Kelta
