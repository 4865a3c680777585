// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "SyncPair0/SyncTypes.h"
#include "platform/Files.h"

namespace Kelta {

/// Reads a state file line by line through a fixed buffer.
class StateLines {
public:
  enum class Outcome {
    line,
    notText,  ///< the line is no UTF-8
    tooLong,  ///< more than 2,047 characters: nothing behind it can be trusted
    end,
  };
  /// Throws filesystem_error when the file cannot be opened.
  explicit StateLines(const boost::filesystem::path& path) : file_(path, platform::File::Mode::read) {}
  Outcome next(std::wstring& line);

private:
  bool fill();

  platform::File file_;
  std::string buffer_;
  std::size_t position_ = 0;
};

/// False when the line is not key TAB decimal time TAB hash.
bool parseStateLine(const std::wstring& line, std::wstring& key, StateRecord& record);

}  // namespace Kelta
