// SPDX-License-Identifier: Apache-2.0
// Nothing is written, moved or deleted by following a link out of the pair: every step from a root down to the
// entry is looked at first.
#include "CryptoSyncCopyHandler/PairFolders.h"

#include <boost/filesystem/exception.hpp>
#include <vector>

#include "base/GenericPath.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::OpenFolder;

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

Way refuse(const std::string& what, const std::wstring& path) {
  return {Reach::refused, std::nullopt, what + ": " + platform::utf8(path)};
}

bool isMissing(const fs::filesystem_error& error) {
  return error.code() == boost::system::errc::no_such_file_or_directory;
}

// The root itself may be reached through a link: that is how the user set the pair up.
std::optional<OpenFolder> openRoot(const std::wstring& root) try {
  return OpenFolder(platform::pathOf(root));
} catch (const fs::filesystem_error&) {
  return std::nullopt;
}

OpenFolder stepDown(const OpenFolder& from, const fs::path& name, bool create) try {
  return from.folder(name);
} catch (const fs::filesystem_error& error) {
  if (!create || !isMissing(error)) throw;
  return from.makeFolder(name);
}

Way walk(const std::wstring& root, const std::wstring& folder, bool create) {
  std::vector<std::wstring> steps;
  if (root.empty() || !(platform::samePath(folder, root) || isBelow(folder, root)))
    return refuse("outside of the pair's folders", folder);
  if (!stepsBelow(root, folder, steps)) return refuse("not a plain path", folder);
  std::optional<OpenFolder> current = openRoot(root);
  if (!current) return refuse("folder is missing", root);
  std::wstring path = root;
  for (const std::wstring& step : steps) {
    path = joinPath(path, step);
    try {
      current = stepDown(*current, platform::pathOf(step), create);
    } catch (const fs::filesystem_error& error) {
      if (isMissing(error) && !create) return {Reach::missing, std::nullopt, std::string()};
      if (isMissing(error)) return refuse("stands under another name", path);
      if (error.code() == boost::system::errc::not_a_directory) return refuse("not a folder, or a link", path);
      if (create) throw;
      return refuse(error.code().message(), path);
    }
  }
  return {Reach::there, std::move(current), std::string()};
}

}  // namespace

bool isBelow(const std::wstring& path, const std::wstring& root) {
  if (root.empty()) return false;
  const std::wstring start = withSeparator(root);
  return path.size() >= start.size() && platform::samePath(path.substr(0, start.size()), start);
}

Way reachFolder(const std::wstring& root, const std::wstring& folder) { return walk(root, folder, false); }

Way makeFolders(const std::wstring& root, const std::wstring& folder) { return walk(root, folder, true); }

platform::Spot spotOf(const std::wstring& root, const std::wstring& path) {
  const Way way = reachFolder(root, parentOf(path));
  const bool missing = way.reach == Reach::missing;
  if (way.folder) return {*way.folder, platform::pathOf(nameOf(path))};
  throw fs::filesystem_error(
      missing ? "its folder is missing" : way.reason, platform::pathOf(path),
      make_error_code(missing ? boost::system::errc::no_such_file_or_directory : boost::system::errc::not_a_directory));
}

platform::Spot spotOfListed(const std::wstring& root, const fs::path& entry) {
  OpenFolder folder(platform::pathOf(root));
  for (const fs::path& step : entry.parent_path().lexically_relative(folder.path())) {
    if (step != ".") folder = folder.folder(step);
  }
  return {folder, entry.filename()};
}

bool moveBelow(const std::wstring& root, const std::wstring& from, const std::wstring& to) {
  const platform::Spot source = spotOf(root, from);
  const platform::Spot target = spotOf(root, to);
  return source.folder.move(source.name, source.look().id, target.folder, target.name);
}

}  // namespace Kelta
