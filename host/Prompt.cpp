// SPDX-License-Identifier: Apache-2.0
#include "Prompt.h"

#include "Failure.h"
#include "platform/Console.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

constexpr int kEndOfInput = -1;
constexpr int kInterrupt = 0x03;
constexpr int kEndOfText = 0x04;
constexpr int kBackspace = 0x08;
constexpr int kEscape = 0x1B;
constexpr int kDelete = 0x7F;

bool isCancel(int key) { return key == kEndOfInput || key == kInterrupt || key == kEndOfText || key == kEscape; }

void append(std::wstring& text, int key) {
  const auto value = static_cast<unsigned>(key);
  if (sizeof(wchar_t) > 2 || value < 0x10000) {
    text.push_back(static_cast<wchar_t>(value));
    return;
  }
  text.push_back(static_cast<wchar_t>(0xD800 + ((value - 0x10000) >> 10)));
  text.push_back(static_cast<wchar_t>(0xDC00 + ((value - 0x10000) & 0x3FF)));
}

void removeLast(std::wstring& text) {
  if (text.empty()) return;
  const auto last = static_cast<unsigned>(text.back());
  text.pop_back();
  if (last >= 0xDC00 && last <= 0xDFFF && !text.empty()) text.pop_back();
}

bool readLine(platform::SecretConsole& console, std::wstring& text) {
  for (;;) {
    const int key = console.readKey();
    if (key == L'\r' || key == L'\n') return true;
    if (isCancel(key)) return false;
    if (key == kBackspace || key == kDelete) {
      removeLast(text);
    } else if (key >= 0x20 && text.size() < Secret::kLongest - 1) {
      append(text, key);
    }
  }
}

}  // namespace

Answer askSecret(const std::wstring& question, Secret& secret) {
  platform::SecretConsole console;
  if (!console.available()) return Answer::noTerminal;
  wipe(secret.text());
  secret.text().reserve(Secret::kLongest + 1);
  console.print(platform::utf8(question));
  const bool given = readLine(console, secret.text());
  console.print("\n");
  return given ? Answer::given : Answer::cancelled;
}

bool passwordFromEnvironment(Secret& secret) {
  std::wstring value;
  if (!platform::environment("KELSYNC_PASSWORD", value)) return false;
  secret.text().assign(value);
  wipe(value);
  return !secret.text().empty();
}

Secret archivePassword(bool confirm) {
  Secret password;
  if (passwordFromEnvironment(password)) return password;
  std::wstring ignored;
  if (platform::environment("KELSYNC_PASSWORD", ignored)) {
    throw Failure{Exit::noKey, L"KELSYNC_PASSWORD is set, but empty"};
  }
  const Answer answer = askSecret(L"Password: ", password);
  if (answer == Answer::noTerminal) {
    throw Failure{Exit::noKey, L"no password: set KELSYNC_PASSWORD, or run on a terminal to be asked for it"};
  }
  if (answer == Answer::cancelled || password.text().empty()) throw Failure{Exit::noKey, L"no password was given"};
  if (!confirm) return password;
  Secret again;
  if (askSecret(L"The same again: ", again) != Answer::given || again.text() != password.text()) {
    throw Failure{Exit::noKey, L"the two passwords differ"};
  }
  return password;
}

}  // namespace host
}  // namespace Kelta
