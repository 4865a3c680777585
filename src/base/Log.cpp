// SPDX-License-Identifier: Apache-2.0
#include "base/Log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <string>

#include "platform/Printable.h"

namespace Kelta {
namespace log {
namespace {

constexpr std::size_t kLineBytes = 4096;

// log4cplus is built with narrow or with wide characters; lines are UTF-8 here.
[[maybe_unused]] void assign(std::string& target, const std::string& text) { target = text; }
[[maybe_unused]] void assign(std::wstring& target, const std::string& text) {
  if (!platform::wideFromUtf8(text, target)) target = L"! UNPRINTABLE LOG ENTRY !";
}

// A line cut at the buffer's end must not end within a character.
void dropPartialCharacter(std::string& text) {
  std::size_t start = text.size();
  while (start > 0 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) --start;
  if (start > 0 && static_cast<unsigned char>(text[start - 1]) >= 0xC0) text.resize(start - 1);
}

int formatPrefix(char* buffer, std::size_t size, const Place& place) {
  if (!place.object) return std::snprintf(buffer, size, "l:%d %s() ", place.line, place.function);
  return std::snprintf(buffer, size, "l:%d (%p) %s() ", place.line, place.object, place.function);
}

std::string formatted(const Place& place, const char* format, va_list arguments) {
  std::array<char, kLineBytes> buffer{};
  const int prefix = formatPrefix(buffer.data(), buffer.size(), place);
  std::vsnprintf(buffer.data() + prefix, buffer.size() - static_cast<std::size_t>(prefix), format, arguments);
  return buffer.data();
}

bool isOfFormat(char character) { return character == '\n' || character == '\t'; }

/// A line without what arguments, names of files mostly, could fake another line or steer a terminal with. The line
/// breaks and tabs of the format itself stay: `blanked` is the same line made with blanks in their places.
std::string safe(const std::string& line, const std::string& blanked) {
  std::string result;
  std::size_t start = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == blanked[i]) continue;
    result += platform::printable(line.substr(start, i - start)) + line[i];
    start = i + 1;
  }
  result += platform::printable(line.substr(start));
  if (result.size() < kLineBytes) return result;
  result.resize(kLineBytes - 1);
  dropPartialCharacter(result);
  return result;
}

std::string formatLine(const Place& place, const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string line = formatted(place, format, arguments);
  if (line.size() == kLineBytes - 1) dropPartialCharacter(line);
  std::string blank = format;
  std::replace_if(blank.begin(), blank.end(), isOfFormat, ' ');
  const std::string blanked = blank == format ? line : formatted(place, blank.c_str(), again);
  va_end(again);
  return safe(line, blanked);
}

}  // namespace

log4cplus::Logger& syncPair() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("SYNCPAIR"));
  return logger;
}

log4cplus::Logger& copyHandler() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("COPYHANDLER"));
  return logger;
}

log4cplus::Logger& crypto() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("COPYHANDLER.CRYPTO"));
  return logger;
}

log4cplus::Logger& activity() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ACTIVITY"));
  return logger;
}

void writePlain(log4cplus::Logger& logger, const std::string& line) {
  if (!logger.isEnabledFor(log4cplus::INFO_LOG_LEVEL)) return;
  std::string blanked = line;
  std::replace(blanked.begin(), blanked.end(), '\t', ' ');
  log4cplus::tstring text;
  assign(text, safe(line, blanked));
  logger.log(log4cplus::INFO_LOG_LEVEL, text);
}

void write(log4cplus::Logger& logger, log4cplus::LogLevel level, const Place& place, const char* format, ...) {
  log4cplus::tstring text;
  va_list arguments;
  va_start(arguments, format);
  try {
    assign(text, formatLine(place, format, arguments));
  } catch (...) {
    std::cout << "Format log failed\n";
    text = LOG4CPLUS_TEXT("! UNPRINTABLE LOG ENTRY !");
  }
  va_end(arguments);
  logger.log(level, text, place.file, place.line, place.function);
}

}  // namespace log
}  // namespace Kelta
