// SPDX-License-Identifier: Apache-2.0
// Whether an installed key is the one that the Outside was encrypted with: a wrong one would lock new files away from
// every other device, and nobody would notice before they were needed.
#include <boost/filesystem/operations.hpp>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/Log.h"
#include "platform/Files.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

constexpr int kMaxArchives = 8;
constexpr int kMaxEntries = 20000;

}  // namespace

bool CryptoSyncCopyHandler::verifyAssetKey(const std::wstring& assetId) {
  const std::string id = utf8(assetId);
  int tried = 0;
  int seen = 0;
  boost::system::error_code error;
  fs::recursive_directory_iterator entry(platform::pathOf(outsideFolder_), error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    interruption().check();
    if (++seen > kMaxEntries || tried == kMaxArchives) break;
    const fs::path& path = entry->path();
    boost::property_tree::ptree meta;
    if (!hasExtension(path) || platform::stampOf(path).kind != platform::Kind::file || !getZipMetaJSON(path, meta)) {
      continue;
    }
    const KeyFit fit = keyFits(id, meta);
    if (fit == KeyFit::fits) return true;
    tried += fit == KeyFit::doesNot ? 1 : 0;
  }
  if (tried > 0) HANDLER_ERROR("the key of asset %s opens none of %d archives", id.c_str(), tried);
  return tried == 0;
}

}  // namespace Kelta
