// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/system/error_code.hpp>
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
  changed = 12,  ///< a file was written to while it was read; as a whole it can be read when it rests
  foreign = 13,  ///< more than an archive of a pair may hold: another program's. No export returns it
};

class ArchiveError : public std::runtime_error {
public:
  ArchiveError(ArchiveFailure failure, const std::string& what) : std::runtime_error(what), failure_(failure) {}
  /// `cause`: what the system said.
  ArchiveError(ArchiveFailure failure, const std::string& what, const boost::system::error_code& cause)
      : std::runtime_error(what), failure_(failure), cause_(cause) {}
  ArchiveFailure failure() const { return failure_; }
  int code() const { return static_cast<int>(failure_); }

  /// No error where the system did not refuse anything.
  const boost::system::error_code& cause() const { return cause_; }

private:
  ArchiveFailure failure_;
  boost::system::error_code cause_;
};

[[noreturn]] inline void damaged(const char* what) { throw ArchiveError(ArchiveFailure::damaged, what); }

inline void requireCrypto(bool fine) {
  if (!fine) throw ArchiveError(ArchiveFailure::internal, "the crypto library failed");
}

}  // namespace zip
}  // namespace Kelta
