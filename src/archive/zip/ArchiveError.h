// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace Kelta {
namespace zip {

/// What went wrong; the values are those of the archive exports.
enum class ArchiveFailure {
  badArgument = 1,
  cannotRead = 2,
  cannotWrite = 3,
  notAnArchive = 4,
  damaged = 5,
  wrongPassword = 6,
  unsupported = 7,
  noEntry = 8,
  unsafeName = 9,
  cancelled = 10,
  internal = 11,
};

class ArchiveError : public std::runtime_error {
public:
  ArchiveError(ArchiveFailure failure, const std::string& what) : std::runtime_error(what), failure_(failure) {}
  ArchiveFailure failure() const { return failure_; }
  int code() const { return static_cast<int>(failure_); }

private:
  ArchiveFailure failure_;
};

}  // namespace zip
}  // namespace Kelta
