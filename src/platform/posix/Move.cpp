// SPDX-License-Identifier: Apache-2.0
#include "platform/posix/Move.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#include <boost/filesystem/exception.hpp>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

int renameWithoutReplacing(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // The file system cannot do both in one step.
  if (stampOf(to).kind != Kind::missing) return EEXIST;
  return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  const int error = renameWithoutReplacing(from, to);
  if (error == EEXIST) return false;
  if (error == 0) return true;
  throw boost::filesystem::filesystem_error("rename", from, to,
                                            boost::system::error_code(error, boost::system::system_category()));
}

}  // namespace platform
}  // namespace Kelta
