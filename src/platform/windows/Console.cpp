// SPDX-License-Identifier: Apache-2.0
#include "platform/Console.h"

#include <windows.h>
// after windows.h
#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "platform/Text.h"
#include "platform/Utf8.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

constexpr wchar_t kEndKey = 0x1A;  // Ctrl-Z

Handle openConsole(const wchar_t* name) {
  return handleOf(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr));
}

std::atomic<void (*)()> terminationHandler{nullptr};

// On a thread that the system makes for the event.
BOOL WINAPI onControlEvent(DWORD event) {
  void (*const handler)() = terminationHandler.exchange(nullptr);
  if (!handler) return FALSE;  // the second time: the process ends as usual
  handler();
  // When the console closes or the user logs off, the process ends as soon as this returns.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
  return TRUE;
}

UINT formerOutputCodePage = 0;

}  // namespace

struct SecretConsole::Impl {
  Handle input;
  Handle output;
  DWORD formerMode = 0;
  wchar_t heldBack = 0;  ///< a unit that turned out to belong to the next character

  /// 0 at the end of the input.
  wchar_t nextUnit() {
    wchar_t unit = heldBack;
    heldBack = 0;
    DWORD got = 0;
    while (unit == 0)
      if (!ReadConsoleW(input.get(), &unit, 1, &got, nullptr) || got != 1) return 0;
    return unit;
  }
};

SecretConsole::SecretConsole() : impl_(new Impl) {
  impl_->input = openConsole(L"CONIN$");
  impl_->output = openConsole(L"CONOUT$");
  if (!impl_->input || !impl_->output || !GetConsoleMode(impl_->input.get(), &impl_->formerMode)) return;
  // Ctrl-C arrives as a key: its event would end the process with the echo still off.
  const DWORD off = ENABLE_ECHO_INPUT | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT;
  available_ = SetConsoleMode(impl_->input.get(), impl_->formerMode & ~off) != 0;
}

SecretConsole::~SecretConsole() {
  if (available_) SetConsoleMode(impl_->input.get(), impl_->formerMode);
  delete impl_;
}

int SecretConsole::readKey() {
  if (!available_) return -1;
  wchar_t units[2] = {impl_->nextUnit(), 0};
  if (units[0] == 0 || units[0] == kEndKey) return -1;
  const wchar_t* at = units;
  char32_t c = takeWide(at, units + 1);
  if (c == noCharacter && units[0] < 0xDC00) {
    units[1] = impl_->nextUnit();
    at = units;
    c = takeWide(at, units + 2);
    if (c == noCharacter) impl_->heldBack = units[1];
  }
  return static_cast<int>(c == noCharacter ? replacementCharacter : c);
}

void SecretConsole::print(const std::string& text) {
  std::wstring wide = readableFromUtf8(text);
  DWORD put = 0;
  if (available_) WriteConsoleW(impl_->output.get(), wide.data(), static_cast<DWORD>(wide.size()), &put, nullptr);
}

// Bytes go out as they are: a file or a pipe gets the same as on any other system.
void useUtf8Output() {
  for (std::FILE* const stream : {stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
  if (formerOutputCodePage != 0) return;
  formerOutputCodePage = GetConsoleOutputCP();
  if (formerOutputCodePage == 0 || !SetConsoleOutputCP(CP_UTF8)) return;
  std::atexit([] { SetConsoleOutputCP(formerOutputCodePage); });
}

void surviveClosedPipes() {}

bool outputIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

std::size_t terminalColumns() {
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  CONSOLE_SCREEN_BUFFER_INFO screen{};
  if (!GetConsoleMode(output, &mode) || !SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING)) return 0;
  if (!GetConsoleScreenBufferInfo(output, &screen)) return 0;
  return static_cast<std::size_t>(std::max(screen.srWindow.Right - screen.srWindow.Left + 1, 0));
}

void onTerminate(void (*handler)()) {
  terminationHandler = handler;
  SetConsoleCtrlHandler(&onControlEvent, TRUE);
}

}  // namespace platform
}  // namespace Kelta
