// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace Kelta {
namespace host {

/// What a long run shows: on a terminal one live line of what all pairs are doing, otherwise a line for each entry.
/// Any thread.
class StatusBoard {
public:
  /// One name for each pair; a single one is not shown.
  StatusBoard(std::vector<std::wstring> names, bool quiet);

  enum class State { starting, scanning, synchronising, idle, missing, ended };
  void setState(std::size_t pair, State state);
  void setPending(std::size_t pair, std::size_t count);
  void setWaiting(std::size_t pair, std::size_t count);
  void setErrors(std::size_t pair, std::size_t count);
  /// An entry that was carried over, or is left for later.
  void entry(std::size_t pair, const std::wstring& operation, const std::wstring& name);
  /// An entry that could not be carried over, and is tried again: for the live line alone.
  void failing(std::size_t pair, const std::wstring& name);
  /// Stays on the screen, or goes into the log of a service.
  void tell(std::size_t pair, const std::wstring& line);
  void complainAbout(std::size_t pair, const std::wstring& line);
  /// Takes the live line away.
  void close();

private:
  struct Pair {
    std::wstring name;
    State state = State::starting;
    std::size_t pending = 0;
    std::size_t waiting = 0;
    std::size_t errors = 0;
  };
  std::wstring labelled(std::size_t pair, const std::wstring& line) const;
  std::wstring liveLine() const;
  void erase();
  void draw();

  const bool terminal_;
  const bool quiet_;
  std::mutex mutex_;
  std::vector<Pair> pairs_;
  std::wstring last_;
  bool shown_ = false;  ///< the live line is on the screen
};

}  // namespace host
}  // namespace Kelta
