// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "archive/zip/Secrets.h"

namespace Kelta {
namespace zip {

struct PasswordRequest {
  static constexpr unsigned kMayPrompt = 0x01;  ///< a person may be asked
  static constexpr unsigned kRetry = 0x02;      ///< the last answer for this item was wrong

  std::string item;  ///< the entry's name, UTF-8
  unsigned flags = 0;
};

enum class PasswordAnswer { given, none, cancelled };

/// Asked for the password of an entry, on the thread of the operation.
class PasswordListener {
public:
  virtual ~PasswordListener() = default;
  /// Puts the password into `password` when it answers "given".
  virtual PasswordAnswer password(const PasswordRequest& request, SecretText& password) = 0;
};

}  // namespace zip
}  // namespace Kelta
