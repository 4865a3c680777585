// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <string>

#include "platform/Text.h"

namespace Kelta {
namespace test {

/// A new, empty folder of its own, removed with everything in it at the end.
class TempFolder {
public:
  TempFolder()
      : path_(boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("kelsync-test-%%%%%%%%")) {
    boost::filesystem::create_directory(path_);
  }
  ~TempFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const boost::filesystem::path& path() const { return path_; }
  /// An entry below it, given in generic form.
  boost::filesystem::path operator/(const std::string& entry) const { return path_ / entry; }
  /// The same as wide text in generic form.
  std::wstring wide(const std::string& entry) const { return platform::wideOf((path_ / entry).generic_path()); }

private:
  boost::filesystem::path path_;
};

}  // namespace test
}  // namespace Kelta
