// SPDX-License-Identifier: Apache-2.0
// A cloud client that has two versions of an archive keeps one of them under a name of its own. Such an archive is
// renamed to what the archive of the wanted plain name is called anyway ("x.txt (…).kelta" → "x (…).txt.kelta"), before
// it is looked at for the first time: from then on it is an archive like any other, on every device.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CloudNames.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/SyncPair.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kNumbers = 20;

bool isFile(const std::wstring& path) { return platform::stampOf(platform::pathOf(path)).kind == platform::Kind::file; }

bool isArchive(const std::wstring& path) {
  try {
    return !archive::readEntry(platform::pathOf(path), kMetadataEntry, "").empty();
  } catch (const zip::ArchiveError&) {
    return false;
  } catch (const boost::filesystem::filesystem_error&) {
    return false;
  }
}

}  // namespace

// Whether the archive at `path`, which no record knows, was named by a cloud client.
bool SyncPair::isCloudCopy(const Side& side, const std::wstring& path, CloudCopy& copy) {
  const auto plainName = [&](const std::wstring& name) { return handler_->handleName(joinPath(parentOf(path), name)); };
  if (side.inside || side.state.count(path) > 0 || !readCloudCopy(nameOf(path), plainName, copy)) return false;
  if (!copy.certain && !isFile(joinPath(parentOf(path), copy.original))) return false;
  // What the Inside has under that very name is a name of the user's.
  const std::wstring key = keyOf(side, path, false);
  if (!key.empty() && isFile(joinPath(sourceFolder_, key))) return false;
  return isFile(path) && !isFileLocked(path) && isArchive(path);
}

// What the Inside has, or a record still tells of, is another file, which the archive would pass for.
bool SyncPair::isFreeForCloudCopy(const Side& side, const std::wstring& archive) {
  const std::wstring key = keyOf(side, archive, false);
  if (key.empty() || side.state.count(archive) > 0 || !archivesThere(key).empty()) return false;
  const std::wstring inside = joinPath(sourceFolder_, key);
  return srcStateList.count(inside) == 0 && platform::stampOf(platform::pathOf(inside)).kind == platform::Kind::missing;
}

boost::filesystem::path SyncPair::adopted(const Side& side, const boost::filesystem::path& entry) {
  std::wstring path;
  CloudCopy copy;
  if (!genericOfListed(entry, path) || !isCloudCopy(side, path, copy)) return entry;
  try {
    for (int number = 1; number <= kNumbers; ++number) {
      const std::wstring more = number == 1 ? std::wstring() : L" (" + std::to_wstring(number) + L")";
      const std::wstring plain = joinPath(parentOf(path), copy.stem + more + copy.extension);
      // Beside an encrypted name the copy's is encrypted as well, whatever is asked for here.
      const std::vector<std::wstring> names = handler_->archiveNames(plain);
      const bool asOriginal = copy.encrypted && names.size() > 1 && names.front() == nameOf(plain) + L".kelta";
      const std::wstring name = names.empty() ? std::wstring() : names[asOriginal ? 1 : 0];
      const std::wstring wanted = joinPath(parentOf(path), name);
      if (name.empty() || !isFreeForCloudCopy(side, wanted) || !moveBelow(side.root, path, wanted)) continue;
      PAIR_INFO("named by a cloud client: %s, now %s", utf8(path).c_str(), utf8(name).c_str());
      handler_->deleteStatus(true, path);
      return platform::pathOf(wanted);
    }
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
  return entry;
}

}  // namespace Kelta
