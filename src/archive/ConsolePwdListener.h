// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "archive/zip/PasswordListener.h"

namespace Kelta {
namespace archive {

/// Where a prompt appears and is answered. Keys are Unicode values, -1 at the end of the input.
class PromptTerminal {
public:
  virtual ~PromptTerminal() = default;
  virtual bool available() = 0;
  virtual int readKey() = 0;
  virtual void print(const std::string& text) = 0;
};

/// Opens a terminal for one prompt; it closes with the object.
using TerminalOpener = std::function<std::unique_ptr<PromptTerminal>()>;

/// The process's console, with nothing typed shown.
std::unique_ptr<PromptTerminal> openConsole();

/// Hands over the password it was made with, if any; otherwise, and only if the request allows it, asks on the
/// console. A password that was handed over and refused is not handed over again.
class ConsolePwdListener : public zip::PasswordListener {
public:
  static constexpr std::size_t kLongest = 261;  ///< characters read by a prompt; more are ignored

  /// `password` is UTF-8; empty: none.
  explicit ConsolePwdListener(const std::string& password, const TerminalOpener& open = openConsole);
  zip::PasswordAnswer password(const zip::PasswordRequest& request, zip::SecretText& password) override;

private:
  zip::SecretText stored_;
  TerminalOpener open_;
  int prompts_ = 0;
};

}  // namespace archive
}  // namespace Kelta
