// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <log4cplus/logger.h>

#include "platform/Text.h"

// Log lines of the engine: "l:<source line> (<object>) <method>() <message>", UTF-8, at most 4,095
// bytes. A line is only formatted when its logger is enabled for the level. Wide text is passed as
// utf8(text).c_str(), names of files as they are: control characters of arguments are written as \n, \u{1b} and so on.
// No key and no password is ever an argument.
#if defined(__GNUC__)
#define KELTA_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define KELTA_PRINTF(text, first)
#endif

namespace Kelta {

using platform::utf8;

namespace log {

log4cplus::Logger& syncPair();     ///< "SYNCPAIR"
log4cplus::Logger& copyHandler();  ///< "COPYHANDLER"
/// "COPYHANDLER.CRYPTO": that the steps of the cipher and the random source went right, several lines a file. What did
/// not goes to "COPYHANDLER", from which this one has its level and its appenders unless it is given its own.
log4cplus::Logger& crypto();
log4cplus::Logger& activity();  ///< "ACTIVITY": what was done for the user, one line each

struct Place {
  const char* file;
  int line;
  const char* function;
  const void* object;  ///< null: no object in the prefix
};

void write(log4cplus::Logger& logger, log4cplus::LogLevel level, const Place& place, const char* format, ...)
    KELTA_PRINTF(4, 5);

/// Logs a line (UTF-8) at INFO without a prefix. Its tabs stay; other control characters are escaped.
void writePlain(log4cplus::Logger& logger, const std::string& line);

inline const char* truth(bool value) { return value ? "true" : "false"; }

}  // namespace log
}  // namespace Kelta

#define KELTA_LOG(logger, level, object, ...) KELTA_LOG_OF(logger, level, __func__, object, __VA_ARGS__)
#define KELTA_LOG_OF(logger, level, method, object, ...)                                             \
  do {                                                                                               \
    if ((logger).isEnabledFor(level))                                                                \
      ::Kelta::log::write((logger), (level), {__FILE__, __LINE__, (method), (object)}, __VA_ARGS__); \
  } while (false)

#define PAIR_DEBUG(...) PAIR_DEBUG_OF(__func__, __VA_ARGS__)
#define PAIR_INFO(...) PAIR_INFO_OF(__func__, __VA_ARGS__)
#define PAIR_ERROR(...) PAIR_ERROR_OF(__func__, __VA_ARGS__)
// For the steps of a method that are functions of their own: a line names the method, as whoever reads the log knows
// it.
#define PAIR_DEBUG_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::syncPair(), log4cplus::DEBUG_LOG_LEVEL, method, this, __VA_ARGS__)
#define PAIR_INFO_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::syncPair(), log4cplus::INFO_LOG_LEVEL, method, this, __VA_ARGS__)
#define PAIR_ERROR_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::syncPair(), log4cplus::ERROR_LOG_LEVEL, method, this, __VA_ARGS__)
#define HANDLER_DEBUG_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::copyHandler(), log4cplus::DEBUG_LOG_LEVEL, method, this, __VA_ARGS__)
#define HANDLER_INFO_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::copyHandler(), log4cplus::INFO_LOG_LEVEL, method, this, __VA_ARGS__)
#define HANDLER_ERROR_OF(method, ...) \
  KELTA_LOG_OF(::Kelta::log::copyHandler(), log4cplus::ERROR_LOG_LEVEL, method, this, __VA_ARGS__)
#define HANDLER_DEBUG(...) HANDLER_DEBUG_OF(__func__, __VA_ARGS__)
#define HANDLER_INFO(...) HANDLER_INFO_OF(__func__, __VA_ARGS__)
#define HANDLER_ERROR(...) HANDLER_ERROR_OF(__func__, __VA_ARGS__)
