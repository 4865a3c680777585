// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/TempArea.h"

#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {

namespace fs = boost::filesystem;
using platform::Kind;

TempArea::TempArea(const std::wstring& tempFolder, const void* owner)
    : name_(platform::temporaryName()), path_(platform::pathOf(tempFolder) / name_), owner_(owner) {
  boost::system::error_code error;
  platform::createFolders(path_.parent_path(), error);
  if (error || !platform::createFolder(path_, error)) {
    platform::forgetTemporaryName(name_);
    if (!error) error = make_error_code(boost::system::errc::file_exists);
    throw fs::filesystem_error("Cannot create a temporary folder", path_, error);
  }
  platform::restrictToOwner(path_);
}

TempArea::~TempArea() {
  log4cplus::Logger& logger = log::copyHandler();
  KELTA_LOG_OF(logger, log4cplus::DEBUG_LOG_LEVEL, "copyDecrypt", owner_, "removing all at %s", utf8(path_).c_str());
  boost::system::error_code error;
  platform::removeTree(path_, error);
  if (error) {
    KELTA_LOG_OF(logger, log4cplus::ERROR_LOG_LEVEL, "copyDecrypt", owner_, "remove_all() error_code return %d %s",
                 error.value(), error.message().c_str());
  }
  platform::forgetTemporaryName(name_);
}

bool removeAbandoned(const fs::path& path) {
  if (!platform::isAbandoned(utf8(path.filename()))) return false;
  const Kind kind = platform::stampOf(path).kind;
  boost::system::error_code ignored;
  if (kind == Kind::file) return platform::removeEntry(path, ignored);
  if (kind != Kind::folder) return false;
  platform::removeTree(path, ignored);
  return !ignored;
}

void CryptoSyncCopyHandler::sweepTempFolder() {
  if (tempFolder_.empty()) return;
  boost::system::error_code error;
  std::vector<fs::path> entries;
  platform::listFolder(platform::pathOf(tempFolder_), entries, error);
  const std::int64_t dayAgo = clock().nowSeconds() - 24 * 3600;
  for (const fs::path& entry : entries) {
    // This folder is ours alone: after a day the name of another machine, or a process of that number, means that the
    // machine was renamed or the number given out again. Plain content must not stay behind.
    const platform::FileStamp stamp = platform::stampOf(entry);
    const std::string name = utf8(entry.filename());
    if (platform::isTemporaryName(name) && !platform::isOwnTemporaryName(name) && stamp.seconds() < dayAgo) {
      boost::system::error_code ignored;
      platform::removeTree(entry, ignored);
      continue;
    }
    if (removeAbandoned(entry)) HANDLER_INFO("removed %s", utf8(entry).c_str());
  }
  if (error) HANDLER_ERROR("couldn't sweep %s: %s", utf8(tempFolder_).c_str(), error.message().c_str());
}

}  // namespace Kelta
