// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
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

/// An entry that is left for later although nothing is wrong with it.
struct Waiting {
  std::wstring path;
  std::wstring reason;
  std::chrono::seconds untilNext;  ///< 0: it is tried again in the next cycle

  /// Whether its content is not on the other side yet.
  bool isUnsynchronised() const { return reason == L"changing" || reason == L"in-use"; }
  /// The reason in plain words.
  std::wstring explained() const;
};

/// The lists that the library hands out as JSON text. Throw Failure when the text cannot be read.
std::vector<Notification> notificationsOf(const std::wstring& text);
std::vector<Quarantined> quarantinedOf(const std::wstring& text);
std::vector<Waiting> waitingOf(const std::wstring& text);

/// Whether it is a text with the list `name`.
bool isList(const std::wstring& text, const std::wstring& name);

}  // namespace host
}  // namespace Kelta
