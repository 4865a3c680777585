// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

/// How a name that stands for a link is taken.
enum class Links { followed, refused };

struct File::Impl {
  /// Opens or makes it. Throws when that fails, or when it is no file.
  Impl(boost::filesystem::path file, Mode mode, Links links);
  [[noreturn]] void fail(const char* what) const;
  /// The handle, for the call that the message is to name. Throws when it is closed already.
  void* get(const char* what) const;
  std::uint64_t move(std::uint64_t distance, unsigned long method) const;

  boost::filesystem::path path;
  Handle handle;
};

/// Stamp and identity of an open entry, without the look at what a reparse point stands for. False when it fails.
bool lookAtHandle(void* handle, FileStamp& stamp, EntryId& id);

/// Opens an entry to look at it, no matter what others do with it, and not what it links to.
Handle openToLook(const std::wstring& nativePath);

/// Restricts an open file or folder to the process's user. False when the system refuses.
bool restrictHandle(void* handle);

/// Gives an open, new file the rights and marks of the file under a path, if there is one.
void giveRights(void* fresh, const std::wstring& formerNativePath);

}  // namespace platform
}  // namespace Kelta
