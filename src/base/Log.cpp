// SPDX-License-Identifier: Apache-2.0
#include "base/Log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <string>

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

std::string formatLine(const Place& place, const char* format, va_list arguments) {
  std::array<char, kLineBytes> buffer{};
  const int prefix = formatPrefix(buffer.data(), buffer.size(), place);
  const std::size_t room = buffer.size() - static_cast<std::size_t>(prefix);
  const int length = std::vsnprintf(buffer.data() + prefix, room, format, arguments);
  std::string line(buffer.data());
  if (length >= 0 && static_cast<std::size_t>(length) >= room) dropPartialCharacter(line);
  return line;
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

log4cplus::Logger& activity() {
  static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ACTIVITY"));
  return logger;
}

void writePlain(log4cplus::Logger& logger, const std::string& line) {
  if (!logger.isEnabledFor(log4cplus::INFO_LOG_LEVEL)) return;
  log4cplus::tstring text;
  assign(text, line);
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
