// SPDX-License-Identifier: Apache-2.0
#include "StatusBoard.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>

#include "Terminal.h"
#include "platform/Console.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

const wchar_t* const kEraseToEnd = L"\x1b[K";

using Lock = std::lock_guard<std::mutex>;

const wchar_t* textOf(StatusBoard::State state) {
  switch (state) {
    case StatusBoard::State::starting:
      return L"starting";
    case StatusBoard::State::scanning:
      return L"scanning";
    case StatusBoard::State::synchronising:
      return L"synchronising";
    case StatusBoard::State::idle:
      return L"idle";
    case StatusBoard::State::missing:
      return L"folder missing";
    case StatusBoard::State::ended:
      break;
  }
  return L"ended";
}

// Rather too many than too few: what runs over the edge of the terminal makes a new line. Latin, Greek and most other
// letters take one; Hangul, symbols from the watch and hourglass on, and all behind them mostly take two.
std::size_t columnsOf(wchar_t character) {
  const auto value = static_cast<std::uint32_t>(character);
  const bool combining = value >= 0x300 && value < 0x370;
  const bool wide = (value >= 0x1100 && value < 0x1160) || value >= 0x231A;
  return combining ? 0 : wide ? 2 : 1;
}

std::wstring cutTo(const std::wstring& text, std::size_t columns) {
  std::size_t end = 0;
  for (std::size_t used = 0; end < text.size(); ++end) {
    used += columnsOf(text[end]);
    if (used > columns) break;
  }
  return text.substr(0, end);
}

void put(const std::wstring& text) {
  const std::string bytes = platform::utf8(text);
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  std::fflush(stdout);
}

}  // namespace

StatusBoard::StatusBoard(std::vector<std::wstring> names, bool quiet)
    : terminal_(platform::terminalColumns() > 0), quiet_(quiet) {
  for (std::wstring& name : names) pairs_.push_back({names.size() > 1 ? std::move(name) : std::wstring()});
}

std::wstring StatusBoard::labelled(std::size_t pair, const std::wstring& line) const {
  const std::wstring& name = pairs_[pair].name;
  return name.empty() ? line : L"[" + printable(name) + L"] " + line;
}

std::wstring StatusBoard::liveLine() const {
  std::map<State, int> states;
  std::size_t pending = 0;
  std::size_t waiting = 0;
  std::size_t errors = 0;
  for (const Pair& pair : pairs_) {
    ++states[pair.state];
    pending += pair.pending;
    waiting += pair.waiting;
    errors += pair.errors;
  }
  std::wstring line;
  for (const auto& state : states) {
    line += (line.empty() ? L"" : L", ") + (pairs_.size() > 1 ? std::to_wstring(state.second) + L" " : std::wstring());
    line += textOf(state.first);
  }
  if (pending > 0) line += L" | pending " + std::to_wstring(pending);
  if (waiting > 0) line += L" | waiting " + std::to_wstring(waiting);
  line += L" | errors " + std::to_wstring(errors);
  return last_.empty() ? line : line + L" | " + last_;
}

void StatusBoard::erase() {
  if (shown_) put(std::wstring(L"\r") + kEraseToEnd);
  shown_ = false;
}

void StatusBoard::draw() {
  if (!terminal_ || quiet_) return;
  // The last column stays free: a character in it may be taken away by the erasing.
  const std::size_t columns = std::max<std::size_t>(platform::terminalColumns(), 2) - 1;
  put(L"\r" + cutTo(liveLine(), columns) + kEraseToEnd);
  shown_ = true;
}

void StatusBoard::setState(std::size_t pair, State state) {
  const Lock lock(mutex_);
  if (pairs_[pair].state == state) return;
  pairs_[pair].state = state;
  draw();
}

void StatusBoard::setPending(std::size_t pair, std::size_t count) {
  const Lock lock(mutex_);
  if (pairs_[pair].pending == count) return;
  pairs_[pair].pending = count;
  draw();
}

void StatusBoard::setWaiting(std::size_t pair, std::size_t count) {
  const Lock lock(mutex_);
  if (pairs_[pair].waiting == count) return;
  pairs_[pair].waiting = count;
  draw();
}

void StatusBoard::setErrors(std::size_t pair, std::size_t count) {
  const Lock lock(mutex_);
  if (pairs_[pair].errors == count) return;
  pairs_[pair].errors = count;
  draw();
}

void StatusBoard::entry(std::size_t pair, const std::wstring& operation, const std::wstring& name) {
  const Lock lock(mutex_);
  last_ = labelled(pair, operation + L"  " + printable(name));
  if (terminal_) return draw();
  if (!quiet_) say(last_);
}

void StatusBoard::failing(std::size_t pair, const std::wstring& name) {
  const Lock lock(mutex_);
  last_ = labelled(pair, L"FAILED  " + printable(name));
  draw();
}

void StatusBoard::tell(std::size_t pair, const std::wstring& line) {
  const Lock lock(mutex_);
  if (quiet_) return;
  erase();
  say(labelled(pair, line));
  draw();
}

void StatusBoard::complainAbout(std::size_t pair, const std::wstring& line) {
  const Lock lock(mutex_);
  erase();
  complain(labelled(pair, line));
  draw();
}

void StatusBoard::close() {
  const Lock lock(mutex_);
  erase();
}

}  // namespace host
}  // namespace Kelta
