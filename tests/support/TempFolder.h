// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/Random.h"
#include "platform/Text.h"

namespace Kelta {
namespace test {

/// The path of a UTF-8 text; bytes that are no UTF-8 are taken as they are.
inline boost::filesystem::path pathFrom(const std::string& text) {
  std::wstring wide;
  return platform::wideFromUtf8(text, wide) ? platform::pathOf(wide) : boost::filesystem::path(text);
}

/// A new, empty folder of its own, removed with everything in it at the end. All paths are in generic form.
class TempFolder {
public:
  TempFolder() {
    std::uint32_t number = 0;
    do {
      if (!platform::stirringWord(number)) throw std::runtime_error("no random number");
      const std::string name = "kelsync-test-" + std::to_string(number);
      path_ = (boost::filesystem::temp_directory_path() / name).generic_path();
    } while (!boost::filesystem::create_directory(path_));
  }
  ~TempFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const boost::filesystem::path& path() const { return path_; }
  /// An entry below it, given in generic form.
  boost::filesystem::path operator/(const std::string& entry) const { return (path_ / pathFrom(entry)).generic_path(); }
  /// The same as wide text in generic form.
  std::wstring wide(const std::string& entry) const { return platform::wideOf(*this / entry); }

private:
  boost::filesystem::path path_;
};

}  // namespace test
}  // namespace Kelta
