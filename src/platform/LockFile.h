// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>

namespace Kelta {
namespace platform {

/// A lock on a file that the system keeps: it ends with its process, however that ends, and whatever is in the file.
/// Two objects of one process keep each other out as well. The file itself stays.
class LockFile {
public:
  /// Takes the lock, with the file made for its owner alone if need be, unless another object has it; never waits.
  /// Throws filesystem_error when the file cannot be used for that.
  explicit LockFile(const boost::filesystem::path& path);
  /// Gives the lock up and clears the note.
  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

  bool taken() const;
  /// What the holder wrote for others to read; empty when it is not there yet, or cannot be read.
  std::string note() const;
  /// Writes it, while the lock is taken. It decides nothing, so that a failure is none.
  void setNote(const std::string& text);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace platform
}  // namespace Kelta
