// SPDX-License-Identifier: Apache-2.0
#include "platform/Folders.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>

namespace Kelta {
namespace platform {

namespace fs = boost::filesystem;
using boost::system::error_code;

// Only a link is followed by the library, which knows files and folders that are kept elsewhere, or deduplicated, as
// nothing but "reparse points".
Kind kindBehindLinks(const fs::path& path) {
  const Kind own = stampOf(path).kind;
  if (own != Kind::symlink) return own;
  error_code error;
  switch (fs::status(callPath(path), error).type()) {
    case fs::file_not_found:
      return Kind::missing;
    case fs::regular_file:
      return Kind::file;
    case fs::directory_file:
      return Kind::folder;
    case fs::status_error:
      return Kind::unknown;
    default:
      return Kind::other;
  }
}

void listFolder(const fs::path& folder, std::vector<fs::path>& entries, error_code& error) {
  fs::directory_iterator entry(callPath(folder), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error))
    entries.push_back(folder / entry->path().filename());
}

bool createFolder(const fs::path& folder, error_code& error) { return fs::create_directory(callPath(folder), error); }

bool createFolders(const fs::path& folder, error_code& error) {
  error.clear();
  if (folder.empty() || kindBehindLinks(folder) == Kind::folder) return false;
  const fs::path parent = folder.parent_path();
  createFolders(parent, error);
  if (error) return false;
  return createFolder(folder, error);
}

bool removeEntry(const fs::path& path, error_code& error) { return fs::remove(callPath(path), error); }

bool removeEntry(const fs::path& path) {
  error_code error;
  const bool removed = removeEntry(path, error);
  if (error) throw fs::filesystem_error("remove", path, error);
  return removed;
}

void removeTree(const fs::path& path, error_code& error) { fs::remove_all(callPath(path), error); }

fs::path realFolder(const fs::path& folder, error_code& error) {
  return fs::weakly_canonical(fs::absolute(folder), error);
}

bool sameEntry(const fs::path& a, const fs::path& b) {
  error_code error;
  return fs::equivalent(callPath(a), callPath(b), error) && !error;
}

}  // namespace platform
}  // namespace Kelta
