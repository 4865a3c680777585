// SPDX-License-Identifier: Apache-2.0
#include "api/LogSetup.h"

#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <codecvt>
#include <cstdio>
#include <locale>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Files.h"

namespace Kelta {
namespace {

using log4cplus::Logger;
using log4cplus::tstring;

constexpr long kLogBytes = 200L * 1024 * 1024;
constexpr long kActivityBytes = 10L * 1024 * 1024;

// A path in the character type that log4cplus was built with.
[[maybe_unused]] void assign(std::string& target, const std::wstring& path) { target = utf8(path); }
[[maybe_unused]] void assign(std::wstring& target, const std::wstring& path) { target = path; }

tstring text(const std::wstring& path) {
  tstring result;
  assign(result, path);
  return result;
}

[[maybe_unused]] const std::string& utf8Of(const std::string& line) { return line; }
[[maybe_unused]] std::string utf8Of(const std::wstring& line) { return utf8(line); }

/// Standard output in UTF-8, also where log4cplus is built with wide characters, whose stream would stop for good at
/// the first character that the process's locale does not have.
class Utf8ConsoleAppender : public log4cplus::ConsoleAppender {
public:
  Utf8ConsoleAppender() : ConsoleAppender(false, false) {}
  ~Utf8ConsoleAppender() override { destructorImpl(); }

protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    const std::string line = utf8Of(formatEvent(event));
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
};

using WideUtf8 = std::conditional_t<sizeof(wchar_t) == 2, std::codecvt_utf8_utf16<wchar_t>, std::codecvt_utf8<wchar_t>>;

/// Opens its file when it is made.
class RollingFile : public log4cplus::RollingFileAppender {
public:
  RollingFile(const std::wstring& path, long bytes) : RollingFileAppender(text(path), bytes, 1, true, true) {}
  ~RollingFile() override { destructorImpl(); }
  bool opened() const { return out.is_open() && out.good(); }
};

/// Null when the file cannot be written.
log4cplus::SharedAppenderPtr rollingFile(const std::wstring& path, long bytes, const tstring& pattern) {
  auto* const file = new RollingFile(path, bytes);
  log4cplus::SharedAppenderPtr appender(file);
  if (!file->opened()) return log4cplus::SharedAppenderPtr();
  file->imbue(std::locale(std::locale::classic(), new WideUtf8));
  appender->setLayout(std::make_unique<log4cplus::PatternLayout>(pattern));
  return appender;
}

// The set-up looks at the loggers before it changes them, and engines may be made on several threads.
boost::mutex& setUpLock() {
  static boost::mutex lock;
  return lock;
}

bool exists(const std::wstring& path) {
  const platform::Kind kind = platform::stampOf(platform::pathOf(path)).kind;
  return kind == platform::Kind::file || kind == platform::Kind::folder || kind == platform::Kind::symlink;
}

// The activity log never shows up among the engine's own lines.
void setUpActivity(const std::wstring& folder) {
  Logger activity = log::activity();
  activity.removeAllAppenders();
  const auto appender = rollingFile(joinPath(folder, L"activity.log"), kActivityBytes, LOG4CPLUS_TEXT("%m%n"));
  if (appender) activity.addAppender(appender);
  activity.setLogLevel(appender ? log4cplus::INFO_LOG_LEVEL : log4cplus::OFF_LOG_LEVEL);
}

log4cplus::SharedAppenderPtr engineLog(const std::wstring& folder) {
  const tstring pattern = LOG4CPLUS_TEXT("%-5p %D{%a %m/%d/%y %H:%M:%S} [%b:%L] %m%n");
  return rollingFile(joinPath(folder, L"syncpair.log"), kLogBytes, pattern);
}

// Without a log.properties.
void setLevels(Logger& root, log4cplus::Appender& appender) {
  std::printf("3\n");
  std::fflush(stdout);
  std::wstring ignored;
  const bool traced = platform::environment("SYNCPAIRTRACE", ignored);
  appender.setThreshold(traced ? log4cplus::DEBUG_LOG_LEVEL : log4cplus::INFO_LOG_LEVEL);
  if (traced) root.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
}

}  // namespace

void Log::useConsole() {
  const boost::lock_guard<boost::mutex> lock(setUpLock());
  Logger activity = log::activity();
  if (activity.getAllAppenders().empty()) {
    activity.setAdditivity(false);
    activity.setLogLevel(log4cplus::OFF_LOG_LEVEL);
  }
  Logger root = Logger::getRoot();
  if (!root.getAllAppenders().empty()) return;
  root.addAppender(log4cplus::SharedAppenderPtr(new Utf8ConsoleAppender));
  root.setLogLevel(log4cplus::INFO_LOG_LEVEL);
}

void Log::setFolder(const std::wstring& folder) {
  const std::wstring generic = genericForm(folder);
  if (generic.empty() || !exists(generic)) return;
  init(generic);
}

void Log::init(const std::wstring& folder) {
  const boost::lock_guard<boost::mutex> lock(setUpLock());
  const std::wstring properties = joinPath(folder, L"log.properties");
  const bool configured = exists(properties);
  Logger root = Logger::getRoot();
  const log4cplus::SharedAppenderPtrList former = root.getAllAppenders();
  try {
    if (configured) log4cplus::PropertyConfigurator::doConfigure(text(properties), Logger::getDefaultHierarchy(), 0);
  } catch (...) {
    std::printf("Log::init() Exception on Properties\n");
  }
  try {
    const log4cplus::SharedAppenderPtr appender = engineLog(folder);
    root.removeAllAppenders();
    if (!appender) {  // what could not be written there goes where it went before
      for (const auto& other : former) root.addAppender(other);
      throw std::runtime_error("no log file");
    }
    root.addAppender(appender);
    setUpActivity(folder);
    if (!configured) setLevels(root, *appender);
  } catch (...) {
    std::printf("Log::init() Exception on set appender.\n");
  }
}

}  // namespace Kelta
