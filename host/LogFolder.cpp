// SPDX-License-Identifier: Apache-2.0
#include "LogFolder.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <iterator>
#include <string>

#include "platform/AtomicFile.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

/// What this command writes, and what its first versions wrote.
const char* const kProperties[] = {"log4cplus.rootLogger=INFO\nlog4cplus.logger.COPYHANDLER.CRYPTO=WARN\n",
                                   "log4cplus.rootLogger=INFO\n"};

bool isOurs(const fs::path& properties) {
  platform::File file(properties, platform::File::Mode::read);
  std::string text(256, '\0');
  text.resize(file.read(&text[0], text.size()));
  return std::find(std::begin(kProperties), std::end(kProperties), text) != std::end(kProperties);
}

}  // namespace

void createForOwner(const fs::path& folder) {
  if (fs::create_directories(folder)) platform::restrictToOwner(folder);
}

void prepareLogFolder(const fs::path& folder) {
  createForOwner(folder);
  const fs::path properties = folder / "log.properties";
  const bool there = platform::stampOf(properties).kind != platform::Kind::missing;
  if (there && !isOurs(properties)) return;
  std::wstring ignored;
  if (platform::environment("SYNCPAIRTRACE", ignored)) {
    fs::remove(properties);
  } else {
    platform::writeWholeFile(properties, kProperties[0]);
  }
}

}  // namespace host
}  // namespace Kelta
