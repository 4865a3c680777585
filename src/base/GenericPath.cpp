// SPDX-License-Identifier: Apache-2.0
#include "base/GenericPath.h"

#include <algorithm>

namespace Kelta {

std::wstring genericForm(std::wstring path) {
  std::replace(path.begin(), path.end(), L'\\', L'/');
  return path;
}

std::wstring folderForm(std::wstring folder) {
  folder = genericForm(std::move(folder));
  while (folder.size() > 1 && folder.back() == L'/' && folder[folder.size() - 2] != L':') folder.pop_back();
  return folder;
}

std::wstring joinPath(const std::wstring& folder, const std::wstring& name) {
  if (folder.empty() || folder.back() == L'/') return folder + name;
  return folder + L'/' + name;
}

std::wstring parentOf(const std::wstring& path) {
  const auto slash = path.rfind(L'/');
  return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}

std::wstring nameOf(const std::wstring& path) {
  const auto slash = path.rfind(L'/');
  return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

}  // namespace Kelta
