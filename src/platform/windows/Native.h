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

/// The full path in the system's form; a long one with the prefix that lifts the length limit.
std::wstring nativePath(const boost::filesystem::path& path);

/// The full path in the system's form without that prefix.
std::wstring fullPath(const boost::filesystem::path& path);

/// Throws filesystem_error for a system error code.
[[noreturn]] void failNative(const char* what, const boost::filesystem::path& path, unsigned long error);

// File times count 100 ns from the start of 1601.
std::int64_t nanosecondsOf(std::uint64_t fileTime);
/// False when the moment lies before 1601.
bool fileTimeOf(std::int64_t nanoseconds, std::uint64_t& fileTime);

/// Whether an entry is there and stands for another one: a symbolic link or a junction.
bool isLink(const std::wstring& nativePath);

}  // namespace platform
}  // namespace Kelta
