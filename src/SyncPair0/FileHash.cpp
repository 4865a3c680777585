// SPDX-License-Identifier: Apache-2.0
// The content hash: MD5 of the first min(size, 5,120,000) bytes of a file, which bounds the cost of large files;
// an identifier for a folder of the Inside; the time for one of the Outside; nothing for anything else.
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "SyncPair0/SyncPair.h"
#include "base/Log.h"
#include "base/Md5.h"

namespace Kelta {
namespace {

std::wstring hashOfFile(const boost::filesystem::path& path) {
  platform::File file(path, platform::File::Mode::read);
  std::vector<char> buffer(static_cast<std::size_t>(std::min(file.size(), kHashedBytes)), '\0');
  const std::size_t length = file.read(buffer.data(), buffer.size());
  const std::string hex = md5Hex(buffer.data(), length);
  return std::wstring(hex.begin(), hex.end());
}

}  // namespace

std::wstring SyncPair::generateFileHash(std::wstring path) {
  PAIR_DEBUG("%s", utf8(path).c_str());
  const auto file = platform::pathOf(path);
  const platform::FileStamp stamp = platform::stampOf(file);
  if (stamp.kind == platform::Kind::folder && !isSrcFolder(path)) {
    const std::wstring time = std::to_wstring(stamp.seconds());
    PAIR_DEBUG("directory mtime: %s", utf8(time).c_str());
    return time;
  }
  if (stamp.kind == platform::Kind::folder) {
    std::wstring id = getFolderRenameId(path);
    if (!id.empty()) {
      PAIR_DEBUG("rename ID found = [%s]", utf8(id).c_str());
      return id;
    }
    if (setFolderRenameId(path)) id = getFolderRenameId(path);
    if (id.empty())
      PAIR_ERROR("couldn't set rename ID");
    else
      PAIR_DEBUG("Set new rename ID=%s", utf8(id).c_str());
    return id;
  }
  if (stamp.kind == platform::Kind::symlink) {
    PAIR_DEBUG("Skip simlink: %s", utf8(path).c_str());
    return std::wstring();
  }
  if (stamp.kind != platform::Kind::file) {
    PAIR_DEBUG("Doesn't exist");
    return std::wstring();
  }
  if (stamp.size == 0) {
    PAIR_DEBUG("0 byte file");
    return std::wstring();
  }
  return hashOfFile(file);
}

}  // namespace Kelta
