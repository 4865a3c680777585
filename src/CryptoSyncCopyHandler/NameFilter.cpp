// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/NameFilter.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;

// Endings of the lock files that office suites put beside an open document.
const wchar_t* const kLockFileEndings[] = {L"odt#", L"ods#", L"odg#",  L"odp#",  L"odf#", L"xls#",
                                           L"doc#", L"ppt#", L"xlsx#", L"docx#", L"pptx#"};

// Our own markers and keys, in any case.
const wchar_t* const kOwnNames[] = {L".quillon", L".kelta", L".kelta.lock", L"sid",       L"sk",
                                    L".sid",     L".sk",    L".rid",        L".kelta.akf"};

const wchar_t* const kForeignNames[] = {L".DS_Store", L"desktop.ini",   L"README-Kelta.txt",
                                        L".dropbox",  L".dropbox.attr", L".dropbox.cache"};

bool beginsWith(const std::wstring& text, const std::wstring& start) {
  return text.compare(0, start.size(), start) == 0;
}

bool endsWith(const std::wstring& text, const std::wstring& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::wstring lowerAscii(std::wstring text) {
  for (wchar_t& character : text) {
    if (character >= L'A' && character <= L'Z') character = static_cast<wchar_t>(character - L'A' + L'a');
  }
  return text;
}

bool isOfficeLock(const std::wstring& name) {
  if (beginsWith(name, L".~") || beginsWith(name, L"~$")) return true;
  return std::any_of(std::begin(kLockFileEndings), std::end(kLockFileEndings),
                     [&](const wchar_t* ending) { return endsWith(name, ending); });
}

}  // namespace

bool isSystemMade(const std::wstring& name) {
  const std::wstring lower = lowerAscii(name);
  return lower == L".ds_store" || lower == L"desktop.ini" || lower == L"thumbs.db";
}

bool isReservedName(const std::wstring& name, bool isFolder) {
  if (!isFolder && isOfficeLock(name)) return true;
  if (name == L"Icon\r") return true;
  if (std::count(std::begin(kOwnNames), std::end(kOwnNames), lowerAscii(name)) > 0) return true;
  if (beginsWith(name, L".kelta") && endsWith(name, L".akf")) return true;
  return std::count(std::begin(kForeignNames), std::end(kForeignNames), name) > 0;
}

bool isNeverSynchronised(const fs::path& path) {
  const Kind kind = platform::stampOf(path).kind;
  if (kind == Kind::symlink) return true;
  std::wstring text;
  platform::wideOf(path, text);
  if (text.size() > kMaxPathCharacters) return true;
  if (kind == Kind::missing || kind == Kind::unknown) return false;
  if (text.find(L'\n') != std::wstring::npos) return true;
  // Synchronised, it would be emptied into itself.
  if (kind == Kind::folder && platform::isRecycleBin(path)) return true;
  std::wstring name;
  platform::wideOf(path.filename(), name);
  return isReservedName(name, kind == Kind::folder);
}

}  // namespace Kelta
