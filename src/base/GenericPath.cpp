// SPDX-License-Identifier: Apache-2.0
#include "base/GenericPath.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

bool isLink(const std::wstring& path) {
  return platform::stampOf(platform::pathOf(path)).kind == platform::Kind::symlink;
}

// Takes one step down, or back.
bool step(std::wstring& folder, const std::wstring& name, std::size_t root) {
  if (name.empty() || name == L".") return true;
  if (name != L"..") {
    if (folder.empty() || folder.back() != L'/') folder += L'/';
    folder += name;
    return true;
  }
  if (folder.size() <= root || isLink(folder)) return false;
  folder = parentOf(folder);
  return true;
}

}  // namespace

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

bool canonicalForm(const std::wstring& path, std::wstring& canonical) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) return false;
  std::wstring text = genericForm(path);
  if (platform::rootLength(text) == 0)
    text = genericForm(platform::wideOf(boost::filesystem::absolute(platform::pathOf(text))));
  const std::size_t root = platform::rootLength(text);
  std::wstring folder = text.substr(0, root);
  for (std::size_t start = root; start < text.size();) {
    const std::size_t end = std::min(text.find(L'/', start), text.size());
    if (!step(folder, text.substr(start, end - start), root)) return false;
    start = end + 1;
  }
  canonical = std::move(folder);
  return true;
}

std::wstring configuredFolder(const std::wstring& path) {
  std::wstring folder;
  return canonicalForm(path, folder) ? folder : std::wstring();
}

std::wstring spelledBelow(const std::wstring& root, const std::wstring& path) {
  return platform::liesBelow(path, root) ? root + path.substr(root.size()) : path;
}

bool genericOfListed(const boost::filesystem::path& entry, std::wstring& path) {
  if (!platform::wideOf(entry, path) || platform::wideOf(entry.filename()).find(L'\\') != std::wstring::npos)
    return false;
  path = genericForm(std::move(path));
  return true;
}

bool isComponent(const std::wstring& name) {
  const std::wstring separators(L"/\\\0", 3);
  return !name.empty() && name != L"." && name != L".." && name.find_first_of(separators) == std::wstring::npos;
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
