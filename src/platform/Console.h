// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {
namespace platform {

/// The process's console for a secret: while an object lives, what is typed is not shown
/// and keys arrive one by one. The former mode comes back with the destructor.
class SecretConsole {
public:
  SecretConsole();
  ~SecretConsole();
  SecretConsole(const SecretConsole&) = delete;
  SecretConsole& operator=(const SecretConsole&) = delete;

  /// False when the process has no console to ask on.
  bool available() const { return available_; }
  /// The next character typed, as a Unicode value (Ctrl-C is 3); -1 at the end of the input.
  int readKey();
  /// Shows text (UTF-8) at once.
  void print(const std::string& text);

private:
  struct Impl;
  Impl* impl_ = nullptr;
  bool available_ = false;
};

/// Prepares standard output and error for UTF-8 text whose lines end in a line feed alone.
void useUtf8Output();

/// From now on writing to a pipe that nobody reads any more fails, and no longer ends the process.
void surviveClosedPipes();

/// Whether a person reads standard output (false: a file or a pipe).
bool outputIsTerminal();

/// How many columns the terminal has that standard output goes to; it then takes escape sequences. 0 where there is
/// none that does: a file, a pipe, an old console.
std::size_t terminalColumns();

/// Calls `handler` on Ctrl-C and on a request to terminate, on a thread of the platform's own, at most once.
void onTerminate(void (*handler)());

}  // namespace platform
}  // namespace Kelta
