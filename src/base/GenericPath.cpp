// SPDX-License-Identifier: Apache-2.0
#include "base/GenericPath.h"

#include <algorithm>

#include "platform/Files.h"

namespace Kelta {

std::wstring genericForm(std::wstring path) {
  std::replace(path.begin(), path.end(), L'\\', L'/');
  return path;
}

std::wstring folderForm(std::wstring folder) {
  folder = genericForm(std::move(folder));
  const std::size_t shortest = std::max<std::size_t>(platform::rootLength(folder), 1);
  while (folder.size() > shortest && folder.back() == L'/') folder.pop_back();
  return folder;
}

std::wstring joinPath(const std::wstring& folder, const std::wstring& name) {
  if (folder.empty() || folder.back() == L'/') return folder + name;
  return folder + L'/' + name;
}

std::wstring parentOf(const std::wstring& path) {
  const auto slash = path.rfind(L'/');
  return slash == std::wstring::npos ? std::wstring() : path.substr(0, std::max(slash, platform::rootLength(path)));
}

std::wstring nameOf(const std::wstring& path) {
  const auto slash = path.rfind(L'/');
  return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

}  // namespace Kelta
