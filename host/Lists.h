// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Kelta {
namespace host {

struct Notification {
  std::wstring type;
  std::wstring message;
  std::wstring more;  ///< a reason; often empty
};

struct Quarantined {
  std::wstring record;
  std::wstring errorId;
  std::wstring path;
  std::wstring message;
  std::wstring time;  ///< UTC, ISO 8601
};

/// An entry that could not be carried over.
struct Failed {
  std::wstring path;
  std::wstring name;  ///< under which it is shown
  std::wstring reason;
  bool explained = false;  ///< by the engine

  /// The folder whose scan tells whether it still fails.
  std::wstring folder() const;
};

/// An entry that is left for later although nothing is wrong with it, or whose time lies in the future.
struct Waiting {
  std::wstring path;
  std::wstring reason;
  std::chrono::seconds untilNext;  ///< 0: it is tried again in the next cycle
  std::wstring name;               ///< under which it is shown; the library gives none

  /// Whether its content is not on the other side yet.
  bool isUnsynchronised() const { return reason == L"changing" || reason == L"in-use"; }
  /// Carried over as any other, but what is saved before that time may go unseen.
  bool hasFutureTime() const { return reason == L"future-time"; }
  /// The reason in plain words.
  std::wstring explained() const;
};

/// Whether it tells where a version went that lost to a newer one.
bool isAboutLoser(const Notification& told);

/// The lists that the library hands out as JSON text. Throw Failure when the text cannot be read.
std::vector<Notification> notificationsOf(const std::wstring& text);
std::vector<Quarantined> quarantinedOf(const std::wstring& text);
std::vector<Waiting> waitingOf(const std::wstring& text);
/// What was kept of the last run.
std::vector<Failed> failedOf(const std::wstring& text);

/// The same as text.
std::wstring textOf(const std::vector<Failed>& entries);
std::wstring textOf(const std::vector<Waiting>& entries);

/// A file and its archive are one to the user: one entry a file, and one more when its time lies in the future. `shown`
/// names those that have no name.
std::vector<Waiting> onePerFile(const std::vector<Waiting>& entries,
                                const std::function<std::wstring(const std::wstring& path)>& shown);

/// How many entries are, which those with a time in the future are not.
std::size_t leftForLater(const std::vector<Waiting>& entries);

/// Whether it is a text with the list `name`.
bool isList(const std::wstring& text, const std::wstring& name);

}  // namespace host
}  // namespace Kelta
