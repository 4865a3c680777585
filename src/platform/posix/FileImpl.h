// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"

namespace Kelta {
namespace platform {

/// Throws filesystem_error for an error number.
[[noreturn]] void failWith(const char* what, const boost::filesystem::path& path, int error);
[[noreturn]] void failWith(const char* what, const boost::filesystem::path& from, const boost::filesystem::path& to,
                           int error);

/// What open() takes for a mode.
int openFlags(File::Mode mode);

struct File::Impl {
  /// Takes what an open() call returned. Throws when that failed, or when it is no file.
  Impl(boost::filesystem::path file, Descriptor opened);
  [[noreturn]] void fail(const char* what, int error) const { failWith(what, path, error); }
  struct stat status(const char* what) const;

  boost::filesystem::path path;
  Descriptor descriptor;
};

}  // namespace platform
}  // namespace Kelta
