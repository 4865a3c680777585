// SPDX-License-Identifier: Apache-2.0
#include "platform/posix/Move.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "platform/posix/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

bool isThere(int folder, const boost::filesystem::path& name) {
  struct stat status {};
  return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

}  // namespace

bool isUnknownRename(int error) { return error == EINVAL || error == ENOSYS; }

int renameWithoutReplacing(int fromFolder, const boost::filesystem::path& from, int toFolder,
                           const boost::filesystem::path& to) {
  if (renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (!isUnknownRename(errno)) return errno;
  // The file system cannot do both in one step; but a second name, for a file, replaces nothing.
  if (linkat(fromFolder, from.c_str(), toFolder, to.c_str(), 0) == 0)
    return unlinkat(fromFolder, from.c_str(), 0) == 0 ? 0 : errno;
  if (errno == EEXIST || errno == EXDEV || isThere(toFolder, to)) return errno == EXDEV ? EXDEV : EEXIST;
  return renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0 ? 0 : errno;
}

int renameWithoutReplacing(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  return renameWithoutReplacing(AT_FDCWD, from, AT_FDCWD, to);
}

int exchangeEntries(int fromFolder, const boost::filesystem::path& from, int toFolder,
                    const boost::filesystem::path& to) {
  return renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_EXCHANGE) == 0 ? 0 : errno;
}

void replaceFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) failWith("rename", from, to, errno);
}

bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  const int error = renameWithoutReplacing(from, to);
  if (error != 0 && error != EEXIST) failWith("rename", from, to, error);
  return error == 0;
}

bool exchangeFiles(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  const int error = exchangeEntries(AT_FDCWD, from, AT_FDCWD, to);
  if (error != 0 && !isUnknownRename(error)) failWith("exchange", from, to, error);
  return error == 0;
}

}  // namespace platform
}  // namespace Kelta
