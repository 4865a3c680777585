// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/EntryName.h"

#include <algorithm>
#include <cwchar>

#include "archive/zip/ArchiveError.h"
#include "platform/Text.h"

namespace Kelta {
namespace zip {

namespace {

[[noreturn]] void unsafe(const char* why) {
  throw ArchiveError(ArchiveFailure::unsafeName, std::string("unsafe entry name: ") + why);
}

/// "COM1", "LPT9" and the like; the digit may be a superscript one (UTF-8: C2 B9, C2 B2, C2 B3).
bool isNumberedDevice(const std::string& base) {
  const std::string kind = base.substr(0, 3);
  if (kind != "com" && kind != "lpt") return false;
  const std::string number = base.substr(3);
  if (number.size() == 1) return number[0] >= '0' && number[0] <= '9';
  return number == "\xC2\xB9" || number == "\xC2\xB2" || number == "\xC2\xB3";
}

bool isDevice(const std::string& component) {
  std::string base = component.substr(0, component.find('.'));
  base.erase(base.find_last_not_of(' ') + 1);
  for (char& c : base)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  static const char* const names[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
  return std::any_of(std::begin(names), std::end(names), [&](const char* name) { return base == name; }) ||
         isNumberedDevice(base);
}

void checkComponent(const std::string& component) {
  if (component.empty()) unsafe("an empty component");
  if (component == "." || component == "..") unsafe("it leaves the folder");
  if (component.back() == '.' || component.back() == ' ') unsafe("a dot or a space at the end");
  if (isDevice(component)) unsafe("a device");
}

/// Simple case folding, of the alphabets whose capitals stand at a fixed distance.
wchar_t folded(wchar_t c) {
  const auto value = static_cast<unsigned long>(c);
  const auto between = [value](unsigned long first, unsigned long last) { return value >= first && value <= last; };
  if (between('A', 'Z')) return static_cast<wchar_t>(value + 32);
  if (between(0xC0, 0xDE) && value != 0xD7) return static_cast<wchar_t>(value + 32);  // Latin-1
  if (between(0x100, 0x137) || between(0x14A, 0x177)) return static_cast<wchar_t>(value | 1);
  if (between(0x139, 0x148) || between(0x179, 0x17E)) return static_cast<wchar_t>(value + (value & 1));
  if (between(0x391, 0x3A9)) return static_cast<wchar_t>(value + 32);  // Greek
  if (between(0x410, 0x42F)) return static_cast<wchar_t>(value + 32);  // Cyrillic
  if (between(0x400, 0x40F)) return static_cast<wchar_t>(value + 80);
  return c;
}

}  // namespace

void checkEntryName(const std::string& name) {
  if (name.empty()) unsafe("empty");
  if (name[0] == '/') unsafe("an absolute path");
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) unsafe("a control character");
    if (c == '\\' || c == ':') unsafe("a drive, a stream or a foreign separator");
  }
  const std::size_t end = name.back() == '/' ? name.size() - 1 : name.size();
  for (std::size_t start = 0; start <= end;) {
    const std::size_t stop = std::min(name.find('/', start), end);
    checkComponent(name.substr(start, stop - start));
    start = stop + 1;
  }
}

std::string foldedName(const std::string& name) {
  std::wstring wide;
  if (!platform::wideFromUtf8(name, wide)) return name;
  for (wchar_t& c : wide) c = folded(c);
  if (!wide.empty() && wide.back() == L'/') wide.pop_back();
  return platform::utf8(wide);
}

bool isUtf8(const std::string& text) {
  std::wstring wide;
  return platform::wideFromUtf8(text, wide);
}

}  // namespace zip
}  // namespace Kelta
