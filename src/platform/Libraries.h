// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kelta {
namespace platform {

/// Keeps the current folder, and the search path for programs, out of where the process looks for the libraries that it
/// or the system loads by their plain names from now on. For the start of a program.
void searchLibrariesSafely();

}  // namespace platform
}  // namespace Kelta
