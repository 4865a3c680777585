// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace host {

/// What the command returns to the shell.
enum class Exit {
  done = 0,
  failed = 1,
  usage = 2,
  folderMissing = 3,
  noKey = 4,
  interrupted = 130,
};

/// Thrown to end the command with a message for the user on standard error.
struct Failure {
  Exit code;
  std::wstring message;
};

}  // namespace host
}  // namespace Kelta
