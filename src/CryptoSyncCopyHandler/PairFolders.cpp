// SPDX-License-Identifier: Apache-2.0
// Nothing is written, moved or deleted by following a link out of the pair: every step from a root down to the
// entry is looked at first.
#include "CryptoSyncCopyHandler/PairFolders.h"

#include <boost/filesystem/exception.hpp>
#include <vector>

#include "base/GenericPath.h"
#include "platform/Folders.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;

std::wstring withSeparator(const std::wstring& root) {
  return !root.empty() && root.back() == L'/' ? root : root + L'/';
}

// The steps from `root` down to `folder`; false when one of them is no plain name.
bool stepsBelow(const std::wstring& root, const std::wstring& folder, std::vector<std::wstring>& steps) {
  if (folder.size() <= root.size()) return true;
  const std::wstring rest = folder.substr(withSeparator(root).size());
  for (std::size_t start = 0; start <= rest.size();) {
    const auto end = std::min(rest.find(L'/', start), rest.size());
    const std::wstring step = rest.substr(start, end - start);
    if (step == L"." || step == L"..") return false;
    if (!step.empty()) steps.push_back(step);
    start = end + 1;
  }
  return true;
}

void createFolder(const fs::path& path) {
  boost::system::error_code error;
  platform::createFolder(path, error);
  if (platform::stampOf(path).kind == Kind::folder) return;
  throw fs::filesystem_error("Cannot create a folder", path, error);
}

Reach refuse(std::string& reason, const char* what, const std::wstring& path) {
  reason = what + (": " + platform::utf8(path));
  return Reach::refused;
}

Reach walk(const std::wstring& root, const std::wstring& folder, bool create, std::string& reason) {
  std::vector<std::wstring> steps;
  if (root.empty() || !(platform::samePath(folder, root) || isBelow(folder, root)))
    return refuse(reason, "outside of the pair's folders", folder);
  if (!stepsBelow(root, folder, steps)) return refuse(reason, "not a plain path", folder);
  // The root itself may be reached through a link: that is how the user set the pair up.
  if (platform::kindBehindLinks(platform::pathOf(root)) != Kind::folder)
    return refuse(reason, "folder is missing", root);
  std::wstring current = root;
  for (const std::wstring& step : steps) {
    current = joinPath(current, step);
    const Kind kind = platform::stampOf(platform::pathOf(current)).kind;
    const bool otherName = kind != Kind::missing && platform::hasOtherName(platform::pathOf(current));
    if ((kind == Kind::missing || otherName) && !create) return Reach::missing;
    if (kind == Kind::missing) {
      createFolder(platform::pathOf(current));
    } else if (kind != Kind::folder || otherName) {
      return refuse(reason, otherName ? "stands under another name" : "not a folder, or a link", current);
    }
  }
  return Reach::there;
}

}  // namespace

bool isBelow(const std::wstring& path, const std::wstring& root) {
  if (root.empty()) return false;
  const std::wstring start = withSeparator(root);
  return path.size() >= start.size() && platform::samePath(path.substr(0, start.size()), start);
}

Reach reachFolder(const std::wstring& root, const std::wstring& folder, std::string& reason) {
  return walk(root, folder, false, reason);
}

Reach makeFolders(const std::wstring& root, const std::wstring& folder, std::string& reason) {
  return walk(root, folder, true, reason);
}

}  // namespace Kelta
