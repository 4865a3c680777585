// SPDX-License-Identifier: Apache-2.0
// What tells a folder of the pair that was emptied from one that is not there: each root carries a small
// marker file, ".rid" on the Inside and ".kelta" on the Outside (Marker.h). A root without its marker that lacks more
// than half of the known files is an unmounted volume, or one that a program has begun to make anew, not a mass
// deletion.
//
// The Outside's marker is the same on every device, so a mount point that was once marked has it too, and so has a
// folder that a cloud client fetches anew: there the folder itself tells. When it is another one than last time and
// lacks any file, it counts as missing, also on the Inside; for the Outside both sides are merged at the next start.
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <iterator>

#include "SyncPair0/Marker.h"
#include "SyncPair0/StateLines.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "base/Md5.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

const wchar_t kRootIdFile[] = L"Kelta_sync_roots.txt";

platform::Kind kindOf(const std::wstring& path) { return platform::stampOf(platform::pathOf(path)).kind; }

bool isFingerprint(const std::wstring& text) {
  return text.size() == 32 && text.find_first_not_of(L"0123456789abcdef") == std::wstring::npos;
}

}  // namespace

std::wstring SyncPair::markerOf(const Side& side) const {
  return joinPath(side.root, side.inside ? L".rid" : L".kelta");
}

std::wstring SyncPair::rootIdFile() const { return joinPath(stateFolder_, kRootIdFile); }

bool SyncPair::rootPresent(const Side& side) const {
  if (side.root.empty()) return false;
  // The root itself may be a link to a folder: then the folder behind it counts.
  return platform::kindBehindLinks(platform::pathOf(side.root)) == platform::Kind::folder;
}

std::string SyncPair::rootIdOf(const Side& side) const {
  const std::string text = readMarker(markerOf(side));
  return text.empty() ? text : md5Hex(text.data(), text.size());
}

// Four lines: the MD5 of the markers last seen, Inside and Outside, and the identities of the folders, Outside first.
void SyncPair::loadRootIds() {
  std::vector<std::wstring> ids;
  const bool readable = readOwnFile(rootIdFile(), [&](StateLines& lines) {
    ids.clear();
    for (std::wstring line; lines.next(line) == StateLines::Outcome::line;) ids.push_back(line);
  });
  const bool whole = ids.size() >= 2 && isFingerprint(ids[0]) && isFingerprint(ids[1]);
  // Without it a mount point that is marked would pass for the folder that the state tells of.
  if (!whole && (!readable || kindOf(rootIdFile()) != platform::Kind::missing)) stateDamaged_ = true;
  rootIds_[0] = whole ? utf8(ids[0]) : std::string();
  rootIds_[1] = whole ? utf8(ids[1]) : std::string();
  for (const std::size_t i : {0U, 1U}) identities_[i] = whole && ids.size() > 2 + i ? utf8(ids[2 + i]) : std::string();
}

// Only called while both roots are known to be the right ones.
void SyncPair::rememberRootIds() {
  const std::string inside = rootIdOf(side(true));
  const std::string outside = rootIdOf(side(false));
  std::string identities[] = {platform::identityOf(platform::pathOf(destFolder_)),
                              platform::identityOf(platform::pathOf(sourceFolder_))};
  for (const std::size_t i : {0U, 1U})
    if (identities[i].empty()) identities[i] = identities_[i];
  const bool same = identities[0] == identities_[0] && identities[1] == identities_[1];
  if (inside.empty() || outside.empty()) return;
  if (inside == rootIds_[0] && outside == rootIds_[1] && same) return;
  rootIds_[0] = inside;
  rootIds_[1] = outside;
  for (const std::size_t i : {0U, 1U}) identities_[i] = identities[i];
  try {
    keepAside(rootIdFile());
    platform::writeWholeFile(platform::pathOf(rootIdFile()),
                             inside + "\n" + outside + "\n" + identities[0] + "\n" + identities[1] + "\n", true);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("couldn't remember the roots: %s", error.what());
  }
}

// On the Outside any marker of this pair will do, whoever placed it: devices may have done so before they knew of each
// other, and a former version gave each its own.
bool SyncPair::isMarked(const Side& side) const {
  const std::string& seen = rootIds_[side.inside ? 0 : 1];
  if (kindOf(markerOf(side)) != platform::Kind::file) return false;
  if (seen.empty() || rootIdOf(side) == seen) return true;
  const OutsideMarker marker = side.inside ? OutsideMarker() : outsideMarkerOf(readMarker(markerOf(side)));
  return marker.isRandom || (!marker.mark.empty() && marker.mark == handler_->outsideMark());
}

// Where the births are not known, another device or number may be the same folder, mounted anew.
SyncPair::RootFolder SyncPair::folderOf(const Side& side) const {
  const std::string now = platform::identityOf(platform::pathOf(side.root));
  const std::string& then = identities_[side.inside ? 1 : 0];
  const auto birth = [](const std::string& identity) {
    const std::size_t colon = identity.find(':', identity.find(':') + 1);
    return colon < identity.size() ? identity.substr(colon + 1) : std::string();
  };
  if (birth(now).empty() || birth(then).empty())
    return now == then || now.empty() || then.empty() ? RootFolder::same : RootFolder::unclear;
  return birth(now) == birth(then) ? RootFolder::same : RootFolder::other;
}

bool SyncPair::rootLost(const Side& side) const {
  if (!rootPresent(side)) return true;
  const bool marked = isMarked(side);
  const RootFolder folder = folderOf(side);
  if (marked && folder == RootFolder::same) return false;
  return lacksFiles(side, marked && folder == RootFolder::other ? 0 : 2);
}

// Whether any known file is missing, or more than one of `share`. Folders tell little: they are made before their
// files.
bool SyncPair::lacksFiles(const Side& side, std::ptrdiff_t share) const {
  const auto known = recordsBelow(side.state, side.root);
  const auto isFile = [&](const StateList::value_type& record) {
    return !recordedAsFolder(side.inside, record.first, record.second);
  };
  const auto files = std::count_if(known.first, known.second, isFile);
  const auto count = files > 0 ? files : std::distance(known.first, known.second);
  const auto allowed = share > 0 ? count / share : 0;
  std::ptrdiff_t missing = 0;
  std::ptrdiff_t there = 0;
  for (auto record = known.first; record != known.second; ++record) {
    if (files > 0 && !isFile(*record)) continue;
    const platform::Kind kind = kindOf(record->first);
    const bool gone = kind == platform::Kind::missing || (files > 0 && kind == platform::Kind::folder);
    ++(gone ? missing : there);
    if (missing > allowed) return true;
    if (there >= count - allowed) return false;
  }
  return false;
}

// At a start: what the state tells of is in neither folder any more, but the Outside is marked as this pair's.
bool SyncPair::outsideWasReplaced() {
  const Side outside = side(false);
  if (!rootPresent(outside) || !isMarked(outside) || !rootLost(outside)) return false;
  requireIntactRoot(side(true));
  PAIR_ERROR("another folder than before: %s", utf8(destFolder_).c_str());
  notify(L"ERROR", L"The Outside is another folder than before, both sides are merged");
  identities_[0].clear();
  srcStateList.clear();
  destStateList.clear();
  return true;
}

void SyncPair::reportRootMissing(const char* method) {
  PAIR_ERROR_OF(method, "Missing pair folder! Can't continue.");
  if (ok_) notify(L"ERROR", L"One or more pair folder missing");
  ok_ = false;
  throw RootMissing();
}

void SyncPair::requireRoots(const char* method) {
  if (!rootPresent(side(true)) || !rootPresent(side(false))) reportRootMissing(method);
}

void SyncPair::requireIntactRoot(const Side& side, const char* method) {
  if (rootLost(side)) reportRootMissing(method);
}

void SyncPair::refuse(const std::wstring& reason) {
  PAIR_ERROR("%s: %s, %s", utf8(reason).c_str(), utf8(sourceFolder_).c_str(), utf8(destFolder_).c_str());
  if (ok_) notify(L"ERROR", reason);
  ok_ = false;
  throw RootMissing();
}

// What was set so that nothing may be done with it: one folder within the other would be encrypted into itself, again
// and again; plain content and names would go where only archives may; nothing could be remembered.
void SyncPair::requireUsableFolders() {
  if (stateFolder_.empty()) refuse(L"No folder for the state is set");
  if (sourceFolder_.empty() || destFolder_.empty()) return;
  const OutsideMarker marker = outsideMarkerOf(readMarker(joinPath(sourceFolder_, L".kelta")));
  if (marker.isRandom || !marker.mark.empty())
    refuse(L"The Inside has the marker of an Outside (.kelta): are the folders of the pair swapped?");
  if (platform::liesBelow(sourceFolder_, destFolder_) || platform::liesBelow(destFolder_, sourceFolder_))
    refuse(L"The folders of the pair lie within each other");
  if (platform::liesBelow(stateFolder_, destFolder_) || platform::liesBelow(tempFolder_, destFolder_))
    refuse(L"The folder for the state or for temporary files lies on the Outside");
}

// A marker that an earlier version made of random numbers gives way to the one that is the same everywhere.
void SyncPair::markOutside() {
  const std::wstring path = markerOf(side(false));
  const std::string mark = handler_->outsideMark();
  const bool replaceable = kindOf(path) == platform::Kind::missing || outsideMarkerOf(readMarker(path)).isRandom;
  if (mark.empty() || !replaceable) return;
  try {
    platform::writeWholeFile(platform::pathOf(path), outsideMarkerText(mark));
    platform::setHidden(platform::pathOf(path));
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("couldn't mark %s: %s", utf8(destFolder_).c_str(), error.what());
  }
}

void SyncPair::placeMarkers() {
  requireUsableFolders();
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  dropRetriedRecords();
  if (!setFolderRenameId(sourceFolder_)) PAIR_ERROR("couldn't mark %s", utf8(sourceFolder_).c_str());
  markOutside();
  rememberRootIds();
}

// Two devices that mark the Outside at once make a cloud client keep both. True for an entry of a root that is such a
// copy.
bool SyncPair::dropMarkerCopy(const Side& side, const boost::filesystem::path& entry) {
  std::wstring path;
  if (side.inside || !genericOfListed(entry, path)) return false;
  if (!mayBeMarkerCopy(nameOf(path)) || kindOf(path) != platform::Kind::file) return false;
  const OutsideMarker marker = outsideMarkerOf(readMarker(path));
  if (!marker.isRandom && marker.mark.empty()) return false;
  PAIR_INFO("a copy of the marker: %s", utf8(path).c_str());
  boost::system::error_code error;
  platform::removeEntry(entry, error);
  if (error) PAIR_ERROR("couldn't remove %s: %s", utf8(path).c_str(), error.message().c_str());
  return true;
}

}  // namespace Kelta
