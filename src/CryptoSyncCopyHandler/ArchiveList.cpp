// SPDX-License-Identifier: Apache-2.0
// The archives of the Outside, for what is done with all of them.
#include "CryptoSyncCopyHandler/ArchiveList.h"

#include "CryptoSyncCopyHandler/CloudNames.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;

struct Folder {
  fs::path path;
  bool beyond;
};

}  // namespace

// Whether no scan takes the entry, which is then named to the user. Of an archive only its path counts here: one whose
// name cannot be read may be of any key.
bool CryptoSyncCopyHandler::isBeyondScans(const fs::path& entry, Kind kind) {
  std::wstring message;
  if (kind == Kind::folder) return ignore(entry);
  if (!hasUnusablePath(entry, message)) return false;
  quarantineOnce(entry, message);
  return true;
}

ArchiveList CryptoSyncCopyHandler::listArchives() {
  ArchiveList list;
  const Way root = reachFolder(outsideFolder_, outsideFolder_);
  list.whole = root.reach == Reach::there;
  if (!list.whole) HANDLER_ERROR("%s", root.reason.c_str());
  std::vector<Folder> folders;
  if (list.whole) folders.push_back({platform::pathOf(outsideFolder_), false});
  while (!folders.empty()) {
    interruption().check();
    const Folder folder = folders.back();
    folders.pop_back();
    std::vector<fs::path> entries;
    boost::system::error_code error;
    platform::listFolder(folder.path, entries, error);
    if (error) HANDLER_ERROR("cannot list %s: %s", utf8(folder.path).c_str(), error.message().c_str());
    list.whole = list.whole && (!error || folder.beyond);
    for (const fs::path& entry : entries) {
      const Kind kind = platform::stampOf(entry).kind;
      const bool beyond = folder.beyond || isBeyondScans(entry, kind);
      list.whole = list.whole && (kind != Kind::unknown || beyond);
      if (kind == Kind::folder) folders.push_back({entry, beyond});
      if (kind != Kind::file || !isNamedAsArchive(entry)) continue;
      list.archives.push_back(entry);
      if (beyond) list.beyond.insert(entry);
    }
  }
  return list;
}

// By us, or by a cloud client that keeps a copy of it.
bool CryptoSyncCopyHandler::isNamedAsArchive(const fs::path& entry) {
  std::wstring name;
  platform::wideOf(entry.filename(), name);
  CloudCopy copy;
  const auto plainName = [&](const std::wstring& archive) {
    return untransformName(joinPath(genericForm(platform::wideOf(entry.parent_path())), archive));
  };
  return !isReservedName(name, false) && (hasExtension(entry) || readCloudCopy(name, plainName, copy));
}

bool CryptoSyncCopyHandler::forEachArchive(const std::function<bool(const std::wstring& path)>& action) {
  bool allDone = !outsideFolder_.empty();
  std::vector<std::wstring> folders{outsideFolder_};
  while (!folders.empty()) {
    const std::wstring folder = folders.back();
    folders.pop_back();
    std::vector<fs::path> entries;
    boost::system::error_code error;
    platform::listFolder(platform::pathOf(folder), entries, error);
    if (error) HANDLER_ERROR("couldn't list %s: %s", utf8(folder).c_str(), error.message().c_str());
    allDone = allDone && !error;
    for (const fs::path& entry : entries) {
      interruption().check();
      std::wstring path;
      const bool named = platform::wideOf(entry, path);
      const Kind kind = platform::stampOf(entry).kind;
      path = genericForm(std::move(path));
      if (named && kind == Kind::folder && !ignore(entry)) folders.push_back(path);
      const bool archive = named && kind == Kind::file && hasExtension(entry) && !ignore(entry);
      if (archive && !action(path)) allDone = false;
    }
    platform::syncFolder(platform::pathOf(folder));
  }
  return allDone;
}

}  // namespace Kelta
