// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <string>
#include <vector>

#include "platform/Files.h"

// What the engine does with folders and names, for paths of any length. boost::filesystem's own operations end at the
// system's limit (260 characters on Windows, 248 for a folder) and take "a." for "a" there.
namespace Kelta {
namespace platform {

/// The path as a file call takes it: on Windows with the prefix that lifts the limit and lets every name stand as it
/// is. For nothing but a call; keys and log lines keep the plain form.
boost::filesystem::path callPath(const boost::filesystem::path& path);

/// Whether what is found at the path has another name than the path's last one: Windows finds "A long name.txt" as
/// "a LONG name.txt" and as "ALONGN~1.TXT" too. Whoever takes that for the entry of this name misses a rename, or
/// deletes or replaces another file.
bool hasOtherName(const boost::filesystem::path& path);

/// What stands at the end of a chain of symbolic links; `missing` behind a link to nothing.
Kind kindBehindLinks(const boost::filesystem::path& path);

/// Appends the entries of a folder, each as folder / name, up to the first error.
void listFolder(const boost::filesystem::path& folder, std::vector<boost::filesystem::path>& entries,
                boost::system::error_code& error);

/// Creates a folder, the second form with every missing one above it. False when it was there already, or on an error.
bool createFolder(const boost::filesystem::path& folder, boost::system::error_code& error);
bool createFolders(const boost::filesystem::path& folder, boost::system::error_code& error);

/// Removes a file, also a read-only one, an empty folder, or a link itself. False when there was none, or on an error.
bool removeEntry(const boost::filesystem::path& path, boost::system::error_code& error);
bool removeEntry(const boost::filesystem::path& path);  ///< throws filesystem_error

/// Removes an entry with everything below it, following no link.
void removeTree(const boost::filesystem::path& path, boost::system::error_code& error);

/// The folder as the system finds it: absolute, with links and ".." resolved as far as it exists.
boost::filesystem::path realFolder(const boost::filesystem::path& folder, boost::system::error_code& error);

/// What tells the folder from every other one that this system has had, also of the same path: "device:number:birth";
/// empty when the system does not tell. Device and number may be others the next time the volume is there, a number may
/// be used again; the birth, empty where the file system does not know it, is the folder's alone.
std::string identityOf(const boost::filesystem::path& folder);

/// Whether both paths lead to the same file; false when one of them leads to none.
bool sameEntry(const boost::filesystem::path& a, const boost::filesystem::path& b);

}  // namespace platform
}  // namespace Kelta
