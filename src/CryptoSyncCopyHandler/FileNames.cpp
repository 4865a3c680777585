// SPDX-License-Identifier: Apache-2.0
// How a file's name maps between the sides: "x" on the Inside is "x.kelta" on the Outside. Folder names are the
// same on both.
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

const std::wstring kExtension = L".kelta";

std::wstring extensionOf(const std::wstring& name) {
  const auto dot = name.rfind(L'.');
  if (dot == std::wstring::npos || name == L"." || name == L"..") return std::wstring();
  return name.substr(dot);
}

}  // namespace

void CryptoSyncCopyHandler::setFNE(bool on) {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  fne_ = on;
}

bool CryptoSyncCopyHandler::namesAreEncrypted() {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  return fne_;
}

bool CryptoSyncCopyHandler::hasExtension(boost::filesystem::path path) {
  std::wstring name;
  platform::wideOf(path.filename(), name);
  const std::wstring extension = extensionOf(name);
  const bool has = extension == kExtension;
  HANDLER_DEBUG("ext=[%s] %d", utf8(extension).c_str(), has ? 1 : 0);
  return has;
}

std::wstring CryptoSyncCopyHandler::handleName(std::wstring name) {
  if (extensionOf(name) != kExtension) return name + kExtension;
  return name.substr(0, name.size() - kExtension.size());
}

std::wstring CryptoSyncCopyHandler::withMappedName(const std::wstring& path) {
  const std::wstring mapped = handleName(nameOf(path));
  return mapped.empty() ? std::wstring() : joinPath(parentOf(path), mapped);
}

}  // namespace Kelta
