// SPDX-License-Identifier: Apache-2.0
// Bringing the names of all archives in line with the flag. Each is renamed by itself and replaces nothing, so that an
// end at any moment leaves a mixture that every device reads; the next call does the rest.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameCipher.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

}  // namespace

bool CryptoSyncCopyHandler::nameFits(const std::wstring& path) {
  return path.size() <= kMaxPathCharacters && utf8(nameOf(path)).size() <= kMaxNameBytes;
}

// False when the archive keeps a name that is not in line.
bool CryptoSyncCopyHandler::resetName(const std::wstring& path, const Renamed& renamed) {
  const NameReading reading = readName(path);
  if (reading.plain.empty() || !mayUseShareOf(platform::pathOf(path), std::wstring())) return false;
  return renameArchive(path, transformName(joinPath(parentOf(path), reading.plain)), renamed);
}

bool CryptoSyncCopyHandler::renameArchive(const std::wstring& path, const std::wstring& name, const Renamed& renamed) {
  if (name == nameOf(path)) return true;
  const std::wstring target = joinPath(parentOf(path), name);
  if (name.empty() || !nameFits(target)) {
    if (!name.empty()) quarantineOnce(platform::pathOf(path), L"Path too long");
    return false;
  }
  try {
    if (!moveBelow(outsideFolder_, path, target)) return false;
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
    return false;
  }
  HANDLER_INFO("renamed to %s", utf8(target).c_str());
  if (renamed) renamed(path, target);
  return true;
}

bool CryptoSyncCopyHandler::resetStateFNE(const Renamed& renamed) {
  const bool allDone = forEachArchive([&](const std::wstring& path) { return resetName(path, renamed); });
  HANDLER_INFO("all names in line with the flag? %s", log::truth(allDone));
  return allDone;
}

// After a change of keys: what is encrypted under a former one is encrypted under the one that is installed now. What a
// cloud client has added to a name stays: under a forgotten key nothing would tell it from a plain name.
bool CryptoSyncCopyHandler::renewNames(const Renamed& renamed) {
  return forEachArchive([&](const std::wstring& path) {
    const std::wstring name = nameOf(path);
    const std::wstring stem = name.substr(0, name.size() - std::wcslen(kArchiveExtension));
    std::wstring plain;
    const std::size_t end = stem.size() < kShortestEncrypted ? 0 : readEncrypted(path, stem, plain);
    if (end == 0) return true;
    if (!mayUseShareOf(platform::pathOf(path), std::wstring())) return false;
    std::wstring renewed = encryptFilename(joinPath(parentOf(path), plain));
    if (!renewed.empty()) renewed.insert(renewed.size() - std::wcslen(kArchiveExtension), stem.substr(end));
    return renameArchive(path, renewed, renamed);
  });
}

}  // namespace Kelta
