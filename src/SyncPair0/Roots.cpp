// SPDX-License-Identifier: Apache-2.0
// What tells a folder of the pair that was emptied from one that is not there: each root carries a small
// marker file, ".rid" on the Inside and ".kelta" on the Outside. A root without its marker and without a single
// known entry is an unmounted volume, not a mass deletion.
#include <boost/filesystem/exception.hpp>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "base/Md5.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"
#include "platform/Random.h"

namespace Kelta {
namespace {

const char kOutsideMarkerText[] = "This folder holds encrypted files. Deleting this file does no harm.\n";

const wchar_t kRootIdFile[] = L"Kelta_sync_roots.txt";
constexpr std::size_t kMarkerBytes = 1024;
constexpr std::size_t kIdDigits = 32;

// Tells one Outside from another.
std::string randomLine() {
  std::string line;
  for (std::uint32_t i = 0, word = 0; i < 4 && platform::stirringWord(word); ++i) line += std::to_string(word) + "-";
  return line + "\n";
}

platform::Kind kindOf(const std::wstring& path) { return platform::stampOf(platform::pathOf(path)).kind; }

}  // namespace

std::wstring SyncPair::markerOf(const Side& side) const {
  return joinPath(side.root, side.inside ? L".rid" : L".kelta");
}

bool SyncPair::rootPresent(const Side& side) const {
  if (side.root.empty()) return false;
  // The root itself may be a link to a folder: then the folder behind it counts.
  return platform::kindBehindLinks(platform::pathOf(side.root)) == platform::Kind::folder;
}

std::string SyncPair::rootIdOf(const Side& side) const {
  try {
    platform::File marker(platform::pathOf(markerOf(side)), platform::File::Mode::read);
    std::string text(kMarkerBytes, '\0');
    text.resize(marker.read(&text[0], text.size()));
    return md5Hex(text.data(), text.size());
  } catch (const boost::filesystem::filesystem_error&) {
    return std::string();
  }
}

void SyncPair::loadRootIds() {
  rootIds_[0] = rootIds_[1] = std::string();
  const auto path = platform::pathOf(joinPath(stateFolder_, kRootIdFile));
  if (platform::stampOf(path).kind != platform::Kind::file) return;
  std::string text(2 * kIdDigits + 2, '\0');
  platform::File file(path, platform::File::Mode::read);
  text.resize(file.read(&text[0], text.size()));
  if (text.size() != 2 * kIdDigits + 2 || text[kIdDigits] != '\n') return;
  rootIds_[0] = text.substr(0, kIdDigits);
  rootIds_[1] = text.substr(kIdDigits + 1, kIdDigits);
}

// Only called while both roots are known to be the right ones.
void SyncPair::rememberRootIds() {
  const std::string inside = rootIdOf(side(true));
  const std::string outside = rootIdOf(side(false));
  if (inside.empty() || outside.empty() || (inside == rootIds_[0] && outside == rootIds_[1])) return;
  rootIds_[0] = inside;
  rootIds_[1] = outside;
  try {
    const std::string text = inside + "\n" + outside + "\n";
    platform::writeWholeFile(platform::pathOf(joinPath(stateFolder_, kRootIdFile)), text, true);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("couldn't remember the roots: %s", error.what());
  }
}

bool SyncPair::rootLost(const Side& side) const {
  if (!rootPresent(side)) return true;
  const std::string& seen = rootIds_[side.inside ? 0 : 1];
  if (kindOf(markerOf(side)) == platform::Kind::file && (seen.empty() || rootIdOf(side) == seen)) return false;
  const auto known = recordsBelow(side.state, side.root);
  if (known.first == known.second) return false;
  for (auto record = known.first; record != known.second; ++record) {
    if (kindOf(record->first) != platform::Kind::missing) return false;
  }
  return true;
}

void SyncPair::reportRootMissing() {
  PAIR_ERROR("Missing pair folder! Can't continue.");
  if (ok_) notify(L"ERROR", L"One or more pair folder missing");
  ok_ = false;
  throw RootMissing();
}

void SyncPair::requireRoots() {
  if (!rootPresent(side(true)) || !rootPresent(side(false))) reportRootMissing();
}

void SyncPair::requireIntactRoot(const Side& side) {
  if (rootLost(side)) reportRootMissing();
}

// One folder within the other would be encrypted into itself, again and again.
void SyncPair::requireSeparateRoots() {
  if (!platform::liesBelow(sourceFolder_, destFolder_) && !platform::liesBelow(destFolder_, sourceFolder_)) return;
  PAIR_ERROR("The folders of the pair lie within each other: %s, %s", utf8(sourceFolder_).c_str(),
             utf8(destFolder_).c_str());
  if (ok_) notify(L"ERROR", L"The folders of the pair lie within each other");
  ok_ = false;
  throw RootMissing();
}

void SyncPair::placeMarkers() {
  if (!sourceFolder_.empty() && !destFolder_.empty()) requireSeparateRoots();
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  dropRetriedRecords();
  if (!setFolderRenameId(sourceFolder_)) PAIR_ERROR("couldn't mark %s", utf8(sourceFolder_).c_str());
  const std::wstring marker = markerOf(side(false));
  if (kindOf(marker) != platform::Kind::missing) return rememberRootIds();
  try {
    platform::writeWholeFile(platform::pathOf(marker), kOutsideMarkerText + randomLine());
    platform::setHidden(platform::pathOf(marker));
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("couldn't mark %s: %s", utf8(destFolder_).c_str(), error.what());
  }
  rememberRootIds();
}

}  // namespace Kelta
