// SPDX-License-Identifier: Apache-2.0
// A folder's rename identifier: "+" and 32 hex digits, the MD5 over 16 random bytes and the names of the folder's
// direct entries at the time, kept in the hidden file ".rid" of the folder. It follows the folder when it is renamed.
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "base/Md5.h"
#include "platform/AtomicFile.h"

namespace Kelta {
namespace {

constexpr std::size_t kIdLength = 33;

const char kIdFile[] = ".rid";

bool isFolderId(const std::string& text) {
  return text.size() == kIdLength && text[0] == '+' &&
         text.find_first_not_of("0123456789abcdef", 1) == std::string::npos;
}

std::string newFolderId(const std::string& names) {
  unsigned char* random = nullptr;
  const bool drawn = CryptoHelper().genRandomBuffer(&random, 16);
  std::string seed;
  if (random) seed.assign(reinterpret_cast<char*>(random), drawn ? 16 : 0);
  std::free(random);
  if (seed.empty()) return std::string();
  seed += names;
  return "+" + md5Hex(seed.data(), seed.size());
}

}  // namespace

std::wstring SyncPair::getFolderRenameId(const std::wstring& folder) {
  const auto file = platform::pathOf(folder) / kIdFile;
  if (platform::stampOf(file).kind != platform::Kind::file) return std::wstring();
  try {
    platform::File reader(file, platform::File::Mode::read);
    std::string text(kIdLength + 1, '\0');
    text.resize(reader.read(&text[0], text.size()));
    std::wstring id;
    if (isFolderId(text) && platform::wideFromUtf8(text, id)) return id;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
  return std::wstring();
}

bool SyncPair::setFolderRenameId(const std::wstring& folder) {
  return !getFolderRenameId(folder).empty() || renewFolderRenameId(folder);
}

// A folder that was copied together with the identifier of a known one gets one of its own.
void SyncPair::renewSharedId(const std::wstring& folder) {
  const std::wstring id = getFolderRenameId(folder);
  const bool shared = !id.empty() && std::any_of(srcStateList.begin(), srcStateList.end(),
                                                 [&](const auto& record) { return record.second[1] == id; });
  if (shared && renewFolderRenameId(folder)) PAIR_INFO("a copy: %s", utf8(folder).c_str());
}

bool SyncPair::renewFolderRenameId(const std::wstring& folder) {
  const Way way = reachFolder(sourceFolder_, folder);
  if (!way.folder) return false;
  try {
    std::string names;
    for (const auto& name : way.folder->list()) {
      if (way.folder->look(name).stamp.kind == platform::Kind::symlink) {
        PAIR_DEBUG_OF("setFolderRenameId", "Skip symlink: %s", utf8(way.folder->path() / name).c_str());
      } else {
        names += utf8(name);
      }
    }
    const std::string id = newFolderId(names);
    if (id.empty()) return false;
    PAIR_DEBUG_OF("setFolderRenameId", "tmp = %s", id.c_str());
    platform::AtomicFile file(*way.folder, kIdFile);
    file.file().write(id.data(), id.size());
    file.commit();
    platform::setHidden(way.folder->path() / kIdFile);
    return true;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    return false;
  }
}

}  // namespace Kelta
