// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <array>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

FileStamp stampOfStatus(const struct stat& status);
EntryId idOfStatus(const struct stat& status);
/// What is known of an entry that stat() failed for.
FileStamp stampOfError(int error);

/// As isOpenForWriting(), for a name in an open folder.
bool isWrittenTo(int folder, const boost::filesystem::path& name);

/// What utimensat() takes to set the last-write time alone.
std::array<struct timespec, 2> lastWriteOnly(std::int64_t nanoseconds);

/// Takes the rights of all but the owner from an open file or folder. False when the system refuses.
bool restrictOpen(int descriptor);
/// Gives a new, open file the rights of `former`, or without one those of any new file.
void giveRights(int fresh, const struct stat* former);

}  // namespace platform
}  // namespace Kelta
