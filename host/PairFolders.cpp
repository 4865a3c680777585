// SPDX-License-Identifier: Apache-2.0
#include "PairFolders.h"

#include <boost/filesystem/operations.hpp>

#include "Failure.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Folders.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
const std::wstring kArchiveSuffix = L".kelta";

bool isArchiveName(const std::wstring& name) {
  return name.size() > kArchiveSuffix.size() &&
         name.compare(name.size() - kArchiveSuffix.size(), kArchiveSuffix.size(), kArchiveSuffix) == 0;
}

bool isFolder(const std::wstring& path) {
  return platform::kindBehindLinks(platform::pathOf(path)) == platform::Kind::folder;
}

namespace {

std::wstring without(const std::wstring& path, const std::wstring& folder) {
  const std::size_t start = folder.back() == L'/' ? folder.size() : folder.size() + 1;
  return path.size() > start ? path.substr(start) : L".";
}

void requireFolder(const std::wstring& path, const wchar_t* role) {
  if (isFolder(path)) return;
  boost::system::error_code error;
  const bool there = fs::exists(platform::pathOf(path), error);
  if (there) throw Failure{Exit::folderMissing, std::wstring(L"the ") + role + L" is no folder: " + printable(path)};
  throw Failure{Exit::folderMissing, std::wstring(L"the ") + role + L" does not exist: " + printable(path) +
                                         L"\nA pair's folders are never created here, since a missing one may be a "
                                         L"volume that is not mounted. If it is meant to be new, create it first "
                                         L"(mkdir)."};
}

bool caseMatters() { return !platform::samePath(L"a", L"A"); }

/// The name as the folder has it; `name` itself when it is not there.
fs::path storedName(const fs::path& folder, const fs::path& name) {
  fs::path stored = name;
  boost::system::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const fs::path found = entry->path().filename();
    if (found == name) return name;
    if (platform::samePath(genericOf(found), genericOf(name))) stored = found;
  }
  return stored;
}

/// The state and the default work folder go by the text of the paths: where case does not matter, the one that the
/// folders are stored with is taken, whatever was typed.
std::wstring spelledAsStored(const fs::path& path) {
  if (caseMatters()) return genericOf(path);
  std::wstring root = genericOf(path.root_path());
  if (root.size() > 1 && root[1] == L':' && root[0] >= L'a' && root[0] <= L'z')
    root[0] = wchar_t(root[0] - L'a' + L'A');
  fs::path stored = platform::pathOf(root);
  for (const fs::path& name : path.relative_path()) stored /= storedName(stored, name);
  return genericOf(stored);
}

}  // namespace

fs::path absoluteOf(const std::wstring& text) {
  const fs::path path = fs::absolute(platform::pathOf(text));
  boost::system::error_code error;
  fs::path resolved = fs::weakly_canonical(path, error);
  if (error) resolved = path.lexically_normal();
  if (resolved.has_relative_path() && (resolved.filename_is_dot() || resolved.filename().empty())) {
    return resolved.parent_path();
  }
  return resolved;
}

std::wstring genericOf(const fs::path& path) { return platform::wideOf(path.generic_path()); }

bool isWithin(const std::wstring& path, const std::wstring& folder) {
  if (platform::samePath(path, folder)) return true;
  const bool hasSeparator = !folder.empty() && folder.back() == L'/';
  return platform::liesBelow(path, hasSeparator ? folder.substr(0, folder.size() - 1) : folder);
}

PairFolders::PairFolders(const std::wstring& insideText, const std::wstring& outsideText)
    : inside(spelledAsStored(absoluteOf(insideText))), outside(spelledAsStored(absoluteOf(outsideText))) {
  if (platform::samePath(inside, outside)) {
    throw Failure{Exit::usage, L"--inside and --outside are the same folder: " + printable(inside)};
  }
  if (isWithin(inside, outside)) throw Failure{Exit::usage, L"the Inside lies in the Outside"};
  if (isWithin(outside, inside)) throw Failure{Exit::usage, L"the Outside lies in the Inside"};
}

void PairFolders::requirePresent() const {
  requireFolder(inside, L"Inside");
  requireFolder(outside, L"Outside");
}

bool PairFolders::present() const { return isFolder(inside) && isFolder(outside); }

std::wstring PairFolders::whatIsMissing() const {
  if (!isFolder(inside)) return L"the Inside is missing; is its volume mounted? " + printable(inside);
  if (!isFolder(outside)) return L"the Outside is missing; is its volume mounted? " + printable(outside);
  return L"a folder of the pair has lost its marker and most or all of what was in it; is its volume mounted? "
         L"Nothing was deleted.\n  Inside:  " +
         printable(inside) + L"\n  Outside: " + printable(outside) +
         L"\nIf it was emptied on purpose, another --work (with --key-file) begins anew with what both folders hold "
         L"now.";
}

std::wstring PairFolders::shown(const std::wstring& path, bool isFolderEntry) const {
  const std::wstring generic = genericOf(platform::pathOf(path));
  if (isWithin(generic, inside)) return without(path, inside);
  if (!isWithin(generic, outside)) return path;
  const std::wstring name = without(path, outside);
  if (isFolderEntry || !isArchiveName(name)) return name;
  return name.substr(0, name.size() - kArchiveSuffix.size());
}

std::wstring PairFolders::shown(const std::wstring& path,
                                const std::function<std::wstring(const std::wstring& archive)>& plainName) const {
  const bool archive = plainName && isWithin(genericOf(platform::pathOf(path)), outside);
  const std::wstring plain = archive ? plainName(path) : std::wstring();
  return plain.empty() ? shown(path, false) : shown(path.substr(0, path.rfind(L'/') + 1) + plain, true);
}

std::wstring PairFolders::counterpart(const std::wstring& path) const {
  const bool isInside = isWithin(path, inside);
  return (isInside ? outside : inside) + path.substr((isInside ? inside : outside).size());
}

bool PairFolders::outsideHoldsArchives() const {
  boost::system::error_code error;
  fs::recursive_directory_iterator entry(platform::pathOf(outside), fs::directory_options::skip_permission_denied,
                                         error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    std::wstring name;
    if (platform::wideOf(entry->path().filename(), name) && isArchiveName(name)) return true;
  }
  return static_cast<bool>(error);
}

}  // namespace host
}  // namespace Kelta
