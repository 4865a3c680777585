// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace Kelta {

/// A folder of its own below the Temp folder for the intermediate files of one copy, readable by its owner only
/// where the file system can. Removed with everything in it at the end, whatever happened.
class TempArea {
public:
  /// `owner` stands in the log lines. Throws filesystem_error when the folder cannot be made.
  TempArea(const std::wstring& tempFolder, const void* owner);
  ~TempArea();
  TempArea(const TempArea&) = delete;
  TempArea& operator=(const TempArea&) = delete;

  const boost::filesystem::path& path() const { return path_; }

private:
  std::string name_;
  boost::filesystem::path path_;
  const void* owner_;
};

/// Removes a temporary entry of the Temp folder that no running process will finish, a folder with everything in it.
/// False when `path` is not such an entry.
bool removeAbandoned(const boost::filesystem::path& path);

}  // namespace Kelta
