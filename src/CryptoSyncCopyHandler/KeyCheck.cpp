// SPDX-License-Identifier: Apache-2.0
// Whether an installed key is the one that the Outside was encrypted with: a wrong one would lock new files away from
// every other device, and nobody would notice before they were needed.
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

constexpr int kMaxArchives = 8;
constexpr int kMaxEntries = 20000;

}  // namespace

// One that cannot be read now tells nothing about the key.
KeyFit CryptoSyncCopyHandler::tryKey(const std::string& id, const fs::path& archive) {
  SealedArchive sealed;
  try {
    return readSealed(archive, sealed) ? keyFits(id, sealed) : KeyFit::otherAsset;
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
    return KeyFit::otherAsset;
  }
}

bool CryptoSyncCopyHandler::verifyAssetKey(const std::wstring& assetId) {
  const std::string id = utf8(assetId);
  int tried = 0;
  int seen = 0;
  std::vector<fs::path> entries{platform::pathOf(outsideFolder_)};
  while (!entries.empty() && seen++ <= kMaxEntries && tried < kMaxArchives) {
    interruption().check();
    const fs::path path = entries.back();
    entries.pop_back();
    const platform::Kind kind = seen == 1 ? platform::Kind::folder : platform::stampOf(path).kind;
    boost::system::error_code ignored;
    if (kind == platform::Kind::folder) platform::listFolder(path, entries, ignored);
    if (kind != platform::Kind::file || !isNamedAsArchive(path)) continue;
    const KeyFit fit = tryKey(id, path);
    if (fit == KeyFit::fits) return true;
    tried += fit == KeyFit::doesNot ? 1 : 0;
  }
  if (tried > 0) HANDLER_ERROR("the key of asset %s opens none of %d archives", id.c_str(), tried);
  return tried == 0;
}

// "verify" when an installed key opens the archive, "no-key" when none does, "damaged" when no key could.
std::wstring CryptoSyncCopyHandler::verifyArchive(const fs::path& archive) {
  try {
    SealedArchive sealed;
    Secret password;
    if (!readSealed(archive, sealed) || wrappedPasswords(sealed.meta).empty()) return L"damaged";
    return unseal(sealed, password.text) ? L"verify" : L"no-key";
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
  return L"damaged";
}

bool CryptoSyncCopyHandler::verifyArchives(const ArchiveProgress& progress) {
  beginOperation();
  const ArchiveList list = listArchives();
  bool right = list.whole;
  std::uint64_t done = 0;
  for (const fs::path& archive : list.archives) {
    interruption().check();
    ++done;
    if (!hasExtension(archive)) continue;
    const std::wstring outcome = verifyArchive(archive);
    right = right && (outcome == L"verify" || list.beyond.count(archive) > 0);
    if (progress) progress(outcome, genericForm(platform::wideOf(archive)), done, list.archives.size());
  }
  return right;
}

}  // namespace Kelta
