// SPDX-License-Identifier: Apache-2.0
#include "archive/ConsolePwdListener.h"

#include <openssl/crypto.h>

#include <array>

#include "platform/Console.h"

namespace Kelta {
namespace archive {

namespace {

constexpr int kEndOfInput = -1;
constexpr int kBackspace = 0x08;
constexpr int kDelete = 0x7F;  ///< what terminals send for the backspace key
constexpr int kReturn = 0x0D;
constexpr int kLineFeed = 0x0A;
constexpr int kEscape = 0x1B;
constexpr int kInterrupt = 0x03;  // Ctrl-C

class Console : public PromptTerminal {
public:
  bool available() override { return console_.available(); }
  int readKey() override { return console_.readKey(); }
  void print(const std::string& text) override { console_.print(text); }

private:
  platform::SecretConsole console_;
};

/// The characters typed so far, at a fixed place and wiped at the end.
class Line {
public:
  ~Line() { OPENSSL_cleanse(keys_.data(), sizeof keys_); }
  bool add(int key) {
    if (count_ == keys_.size()) return false;
    keys_[count_++] = static_cast<unsigned>(key);
    return true;
  }
  bool removeLast() {
    if (count_ == 0) return false;
    --count_;
    return true;
  }
  void copyTo(zip::SecretText& out) const {
    std::string text;
    text.reserve(4 * count_);  // so that no copy is left behind by growing
    for (std::size_t i = 0; i < count_; ++i) appendUtf8(text, keys_[i]);
    out.assign(text);
    if (!text.empty()) OPENSSL_cleanse(&text[0], text.size());
  }
  bool empty() const { return count_ == 0; }

private:
  static void appendUtf8(std::string& text, unsigned value) {
    const int following = value < 0x80 ? 0 : value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    static const unsigned marks[] = {0x00, 0xC0, 0xE0, 0xF0};
    text.push_back(static_cast<char>(marks[following] | value >> (6 * following)));
    for (int i = following; i-- > 0;) text.push_back(static_cast<char>(0x80 | ((value >> (6 * i)) & 0x3F)));
  }

  std::array<unsigned, ConsolePwdListener::kLongest> keys_{};
  std::size_t count_ = 0;
};

/// Reads one line; false when it was cancelled.
bool readLine(PromptTerminal& terminal, Line& line) {
  for (;;) {
    const int key = terminal.readKey();
    if (key == kReturn || key == kLineFeed || key == kEscape || key == kInterrupt || key == kEndOfInput) {
      terminal.print("\n");
      return key == kReturn || key == kLineFeed;
    }
    if (key == kBackspace || key == kDelete) {
      if (line.removeLast()) terminal.print("\b \b");
    } else if (key >= 0x20 && key <= 0x10FFFF && line.add(key)) {
      terminal.print("*");
    }
  }
}

}  // namespace

std::unique_ptr<PromptTerminal> openConsole() { return std::make_unique<Console>(); }

ConsolePwdListener::ConsolePwdListener(const std::string& password, const TerminalOpener& open)
    : stored_(password), open_(open) {}

zip::PasswordAnswer ConsolePwdListener::password(const zip::PasswordRequest& request, zip::SecretText& password) {
  if (!stored_.empty()) {
    if ((request.flags & zip::PasswordRequest::kRetry) != 0) return zip::PasswordAnswer::none;
    password.assign(stored_.text());
    return zip::PasswordAnswer::given;
  }
  if ((request.flags & zip::PasswordRequest::kMayPrompt) == 0) return zip::PasswordAnswer::none;
  const std::unique_ptr<PromptTerminal> terminal = open_();
  if (!terminal->available()) return zip::PasswordAnswer::none;
  if (prompts_ == 0) {
    terminal->print("Need password for " + request.item + "\n");
    terminal->print("Password:");
  } else {
    terminal->print("Retry[" + std::to_string(prompts_) + "]:");
  }
  ++prompts_;
  Line line;
  if (!readLine(*terminal, line)) return zip::PasswordAnswer::cancelled;
  line.copyTo(password);
  return line.empty() ? zip::PasswordAnswer::none : zip::PasswordAnswer::given;
}

}  // namespace archive
}  // namespace Kelta
