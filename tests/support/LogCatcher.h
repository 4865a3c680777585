// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/helpers/stringhelper.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <map>
#include <string>

namespace Kelta {
namespace test {

/// Everything that is logged while it lives, at the finest level.
class LogCatcher {
public:
  LogCatcher() : appender_(new Lines) {
    root_.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    root_.addAppender(appender_);
    log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ACTIVITY")).setAdditivity(true);  // a log folder set earlier ends it
  }
  ~LogCatcher() {
    root_.removeAllAppenders();
    root_.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
  }
  std::string text(const std::string& logger) const {
    const auto& texts = static_cast<Lines&>(*appender_).texts;
    return texts.count(logger) ? texts.at(logger) : std::string();
  }

  std::string everything() const {
    std::string all;
    for (const auto& entry : static_cast<Lines&>(*appender_).texts) all += entry.second;
    return all;
  }

private:
  struct Lines : log4cplus::Appender {
    ~Lines() override { destructorImpl(); }
    void close() override {}
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
      texts[LOG4CPLUS_TSTRING_TO_STRING(event.getLoggerName())] +=
          LOG4CPLUS_TSTRING_TO_STRING(event.getMessage()) + "\n";
    }
    std::map<std::string, std::string> texts;
  };
  log4cplus::Logger root_ = log4cplus::Logger::getRoot();
  log4cplus::SharedAppenderPtr appender_;
};

}  // namespace test
}  // namespace Kelta
