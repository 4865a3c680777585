// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Secret.h"

namespace Kelta {
namespace host {

enum class Answer {
  given,       ///< a line, perhaps an empty one
  cancelled,   ///< Escape, Ctrl-C or the end of the input
  noTerminal,  ///< nobody to ask
};

/// Shows `question` on the process's terminal and reads one line without showing it.
Answer askSecret(const std::wstring& question, Secret& secret);

/// The password for an archive: the environment variable KELSYNC_PASSWORD, else what the user types, twice when
/// `confirm` is set. Throws Failure (noKey) when there is none.
Secret archivePassword(bool confirm);

/// KELSYNC_PASSWORD alone; false when it is not set or empty.
bool passwordFromEnvironment(Secret& secret);

}  // namespace host
}  // namespace Kelta
