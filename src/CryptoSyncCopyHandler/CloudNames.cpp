// SPDX-License-Identifier: Apache-2.0
// What cloud clients add to the name of a file that they have two versions of. They put it before the last extension,
// which on the Outside is ".kelta" ("x.txt (…).kelta"), or behind everything ("x.txt.kelta (…)"); on the Inside it is
// to stand before the file's own extension ("x (…).txt").
//
// A possible text is one that a user may have given to a file of the Inside: nothing in an archive tells. It counts
// only behind a whole name with an extension whose archive stands beside it ("x.txt (1)" and "x.txt"), which no file
// manager makes: it would make "x (1).txt". When a user did name a file so, the other devices rename it; its content
// stays. A bare number ("Makefile.am 2") is too likely to be the user's.
#include "CryptoSyncCopyHandler/CloudNames.h"

#include <regex>

#include "CryptoSyncCopyHandler/NameFilter.h"

namespace Kelta {
namespace {

const std::wstring kArchive = L".kelta";
constexpr std::size_t kLongestExtension = 21;

// Patterns of the added text, in any case, several in a row included.
const wchar_t* const kCertain =
    L" \\([^()]*conflicted copy[^()]*\\)"  // x (Ann's conflicted copy 2024-05-01)
    L"| \\(sfconflict [^()]+\\)"           // x (SFConflict ann@home 2024-05-01)
    L"| \\((?:case|unicode encoding|white ?space|selective sync) conflict[^()]*\\)"  // x (Case Conflict 1)
    L"|_conflict-[0-9]{8}-[0-9]{6}"                                                  // x_conflict-20240501-101500
    L"|\\.sync-conflict-[0-9]{8}-[0-9]{6}(?:-[a-z0-9]{7})?"  // x.sync-conflict-20240501-101500-ABCDEFG
    L"| ?\\[conflict(?:ed)?(?: ?[0-9]{1,3})?\\]";            // x [Conflict], x [conflicted 2]
const wchar_t* const kPossible =
    L" \\([0-9]{1,3}\\)"                        // x (1)
    L"|-(?:desktop|laptop|win)-[a-z0-9]{5,12}"  // x-DESKTOP-1A2B3C4
    L"|\\.conflict(?:\\.[0-9]{1,3})?";          // x.Conflict

std::wregex added(const wchar_t* patterns) {
  return std::wregex(L"(.+?)((?:" + std::wstring(patterns) + L")+)", std::regex::ECMAScript | std::regex::icase);
}

bool endsIn(const std::wstring& name, const std::wstring& end) {
  return name.size() > end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
}

// Where the file's own extension begins; the end of the name when it has none.
std::size_t extensionStart(const std::wstring& name) {
  const std::size_t dot = name.rfind(L'.');
  if (dot == std::wstring::npos || dot == 0 || dot + 1 == name.size()) return name.size();
  const bool plausible = name.size() - dot <= kLongestExtension && name.find(L' ', dot) == std::wstring::npos;
  // "Minutes 12.05" has none.
  const bool number = name.find_first_not_of(L"0123456789", dot + 1) == std::wstring::npos;
  return plausible && !number ? dot : name.size();
}

bool split(const std::wstring& name, const std::wregex& pattern, std::wstring& file, std::wstring& text) {
  const bool before = endsIn(name, kArchive);
  const std::wstring whole = before ? name.substr(0, name.size() - kArchive.size()) : name;
  std::wsmatch match;
  if (!std::regex_match(whole, match, pattern)) return false;
  file = match[1].str();
  text = match[2].str();
  if (before) return true;
  if (!endsIn(file, kArchive)) return false;
  file.resize(file.size() - kArchive.size());
  return true;
}

}  // namespace

bool readCloudCopy(const std::wstring& name, CloudCopy& copy) {
  static const std::wregex certain = added(kCertain);
  static const std::wregex possible = added(kPossible);
  std::wstring file;
  std::wstring text;
  copy.certain = split(name, certain, file, text);
  if (!copy.certain && !split(name, possible, file, text)) return false;
  const std::size_t start = extensionStart(file);
  copy.original = file + kArchive;
  copy.stem = file.substr(0, start) + text;
  copy.extension = file.substr(start);
  const std::wstring plain = copy.plainName();
  return plain + kArchive != name && !endsIn(plain, kArchive) && !isReservedName(plain, false);
}

}  // namespace Kelta
