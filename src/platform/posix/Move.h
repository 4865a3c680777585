// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

#include "platform/Files.h"

// Renames that plain rename() cannot do, each relative to an open folder (AT_FDCWD: the current one). They return 0 or
// an error number.
namespace Kelta {
namespace platform {

/// Renames without replacing anything; EEXIST: something stands under `to` already.
int renameWithoutReplacing(int fromFolder, const boost::filesystem::path& from, int toFolder,
                           const boost::filesystem::path& to);
int renameWithoutReplacing(const boost::filesystem::path& from, const boost::filesystem::path& to);

/// Two entries change places.
int exchangeEntries(int fromFolder, const boost::filesystem::path& from, int toFolder,
                    const boost::filesystem::path& to);

/// As moveToRecycleBin(), for a name in an open folder; the path tells where it was.
Recycled moveToBin(int folder, const boost::filesystem::path& folderPath, const boost::filesystem::path& name,
                   const FileStamp* judged);

/// Whether an error says that the system, or the file system, has no such rename.
bool isUnknownRename(int error);

}  // namespace platform
}  // namespace Kelta
