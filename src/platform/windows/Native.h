// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

/// Closes a kernel handle.
struct HandleCloser {
  void operator()(void* handle) const;
};
using Handle = std::unique_ptr<void, HandleCloser>;

/// A handle as CreateFileW returns it: null inside when it is INVALID_HANDLE_VALUE. The error code stays readable.
Handle handleOf(void* opened);

/// Returns a block of the system's.
struct LocalFreer {
  void operator()(void* block) const;
};

/// The full path with the prefix ("\\?\C:\...", "\\?\UNC\server\share\...") that lifts the length limit and switches
/// off the system's reading of names: "a." is not "a", "NUL" no device. Takes either separator.
std::wstring nativePath(const boost::filesystem::path& path);

/// The same path without the prefix, for what does not know it.
std::wstring withoutPrefix(const std::wstring& nativePath);

/// Throws filesystem_error for a system error code.
[[noreturn]] void failNative(const char* what, const boost::filesystem::path& path, unsigned long error);

/// What a virus scanner or an indexer that has a file open for a moment leads to passes: a few tries, ever further
/// apart.
class Passing {
public:
  /// True after a pause, when the call that failed is worth another try.
  bool waitsFor(unsigned long error);

private:
  int attempt_ = 1;
  unsigned long milliseconds_ = 10;
};

// File times count 100 ns from the start of 1601.
std::int64_t nanosecondsOf(std::uint64_t fileTime);
/// False when the moment lies before 1601.
bool fileTimeOf(std::int64_t nanoseconds, std::uint64_t& fileTime);

/// Sets the last-write time of an open file or folder.
bool setWriteTime(void* handle, std::int64_t nanoseconds);

/// Of an entry that is marked as a reparse point: `symlink` when it stands for another one (a symbolic link or a
/// junction), `unknown` when that cannot be told, else `kind`.
Kind kindOfReparsePoint(const std::wstring& nativePath, Kind kind);

}  // namespace platform
}  // namespace Kelta
