// SPDX-License-Identifier: Apache-2.0
#include "watcher/Filter.h"

#include "base/GenericPath.h"
#include "platform/Files.h"

namespace Kelta {
namespace {

bool sameCharacter(wchar_t a, wchar_t b) {
  return a == b || platform::samePath(std::wstring(1, a), std::wstring(1, b));
}

// After a mismatch the latest "*" takes one character more.
bool matchesPattern(const std::wstring& pattern, const std::wstring& text) {
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::wstring::npos;
  std::size_t taken = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == L'*') {
      star = p++;
      taken = t;
    } else if (p < pattern.size() && (pattern[p] == L'?' || sameCharacter(pattern[p], text[t]))) {
      ++p;
      ++t;
    } else if (star != std::wstring::npos) {
      p = star + 1;
      t = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(L'*', p) == std::wstring::npos;
}

}  // namespace

bool namesEntry(const std::wstring& filter) {
  return !filter.empty() && filter.find_first_of(L"*?") == std::wstring::npos;
}

bool filterMatches(const std::wstring& filter, const std::wstring& path) {
  if (filter.empty()) return false;
  const std::wstring generic = genericForm(path);
  if (namesEntry(filter)) return platform::liesBelow(generic, folderForm(filter));
  return matchesPattern(genericForm(filter), generic);
}

}  // namespace Kelta
