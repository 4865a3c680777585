// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"

#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/NameCipher.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "base/Md5.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {

namespace fs = boost::filesystem;
using platform::Kind;

ISyncCopyHandler::~ISyncCopyHandler() = default;

CryptoSyncCopyHandler::CryptoSyncCopyHandler(EngineServices services) : services_(std::move(services)) {}

CryptoSyncCopyHandler::~CryptoSyncCopyHandler() { shareMemory_.save(); }

void CryptoSyncCopyHandler::notifySync(const std::wstring& message) {
  if (services_.notify) services_.notify(L"SYNC", message, std::wstring());
}

// What the host is told of a file: the user's own name for it. That of an archive where it cannot be told now.
std::wstring CryptoSyncCopyHandler::shownName(const fs::path& path) {
  std::wstring text;
  platform::wideOf(path.generic_path(), text);
  const bool archive = isBelow(text, outsideFolder_) && platform::stampOf(path).kind != Kind::folder;
  const std::wstring plain = archive ? untransformName(text) : std::wstring();
  return plain.empty() ? nameOf(text) : plain;
}

void CryptoSyncCopyHandler::setInsideFolder(std::wstring path) {
  insideFolder_ = configuredFolder(path);
  shares_.setInside(insideFolder_);
  HANDLER_DEBUG("%s", utf8(insideFolder_).c_str());
}

void CryptoSyncCopyHandler::setOutsideFolder(std::wstring path) {
  outsideFolder_ = configuredFolder(path);
  shares_.setOutside(outsideFolder_);
  HANDLER_DEBUG("%s", utf8(outsideFolder_).c_str());
}

void CryptoSyncCopyHandler::setTempFolder(std::wstring path) {
  const bool created = storeFolder(tempFolder_, path);
  if (created) platform::restrictToOwner(platform::pathOf(tempFolder_));
  HANDLER_DEBUG("%s", utf8(tempFolder_).c_str());
}

// True when the folder was created.
bool CryptoSyncCopyHandler::storeFolder(std::wstring& role, const std::wstring& path) {
  role = configuredFolder(path);
  if (role.empty()) return false;
  boost::system::error_code error;
  const bool created = platform::createFolders(platform::pathOf(role), error);
  if (error) HANDLER_ERROR("couldn't create %s: %s", utf8(role).c_str(), error.message().c_str());
  return created;
}

bool CryptoSyncCopyHandler::isUnder(const char* function, const std::wstring& folder, const std::wstring& path) {
  const bool under = isBelow(genericForm(path), folder);
  log4cplus::Logger& logger = log::copyHandler();
  if (logger.isEnabledFor(log4cplus::DEBUG_LOG_LEVEL)) {
    log::write(logger, log4cplus::DEBUG_LOG_LEVEL, {__FILE__, __LINE__, function, this}, "%s ? %s", utf8(path).c_str(),
               log::truth(under));
  }
  return under;
}

bool CryptoSyncCopyHandler::isInsideFolder(std::wstring path) { return isUnder(__func__, insideFolder_, path); }
bool CryptoSyncCopyHandler::isOutsideFolder(std::wstring path) { return isUnder(__func__, outsideFolder_, path); }
bool CryptoSyncCopyHandler::isTempFolder(std::wstring path) { return isUnder(__func__, tempFolder_, path); }

// Made of the asset, whose name stands in every archive: what is made of the key would let a pass phrase be looked up
// in a table that serves for all users, and would change with the key.
std::string CryptoSyncCopyHandler::outsideMark() {
  const std::string& asset = keys_.defaultId();
  const std::string text = "Outside of " + asset;
  return asset.empty() ? std::string() : md5Hex(text.data(), text.size());
}

// What no state file, or no other machine, could hold: the message says why.
bool CryptoSyncCopyHandler::hasUnusablePath(const fs::path& path, std::wstring& message) {
  std::wstring text;
  const bool exact = platform::wideOf(path, text);
  message = L"Path too long";
  if (text.size() > kMaxPathCharacters) return true;
  message = L"Name cannot be stored";
  if (!exact || text.find_first_of(L"\t\r\n") != std::wstring::npos) return true;
  const auto backslash = static_cast<fs::path::value_type>('\\');
  for (const fs::path& part : path.relative_path()) {
    if (part.native().find(backslash) != fs::path::string_type::npos) return true;
  }
  return !platform::canStandAsName(platform::wideOf(path.filename()));
}

bool CryptoSyncCopyHandler::hasPathIssue(const fs::path& path, std::wstring& message, std::wstring& errorId) {
  if (hasUnusablePath(path, message)) return true;
  const Kind kind = platform::stampOf(path).kind;
  const std::wstring text = genericForm(platform::wideOf(path));
  message = L"A folder whose name ends in .kelta is not synchronised";
  if (kind == Kind::folder && isBelow(text, outsideFolder_) && hasExtension(path)) return true;
  if (kind != Kind::file) return false;
  if (hasExtension(path)) return hasNameIssue(text, message, errorId);
  message = L"Path too long";
  return isBelow(text, insideFolder_) && utf8(transformName(text)).size() > kMaxNameBytes;
}

// What an earlier run left under a temporary name in the pair's folders.
void CryptoSyncCopyHandler::sweepPairEntry(const std::wstring& path) {
  platform::Displaced displaced;
  const std::string name = utf8(nameOf(path));
  const bool abandoned = platform::isAbandoned(name);
  const bool inside = isBelow(path, insideFolder_);
  if (!(abandoned || platform::readDisplaced(name, displaced)) || !(inside || isBelow(path, outsideFolder_))) return;
  try {
    const platform::Spot spot = spotOf(inside ? insideFolder_ : outsideFolder_, path);
    if (!abandoned) return settleDisplaced(spot);
    const platform::Entry entry = spot.look();
    if (entry.stamp.kind == Kind::file) spot.folder.removeFile(spot.name, entry.id);
  } catch (const boost::filesystem::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
  }
}

bool CryptoSyncCopyHandler::ignore(fs::path path) {
  std::wstring text;
  platform::wideOf(path, text);
  HANDLER_DEBUG("path: (%d) %s", static_cast<int>(text.size()), utf8(text).c_str());
  if (isInsideFolder(text) && hasExtension(path)) {
    std::wstring name;
    const bool ours = platform::wideOf(path.filename(), name) && isReservedName(name, false);
    const bool there = platform::stampOf(path).kind == Kind::file || platform::stampOf(path).kind == Kind::folder;
    if (there && !ours && quarantineOnce(path, L"A name ending in .kelta is not synchronised from the Inside"))
      HANDLER_INFO("won't sync Kelta file from Inside");
    return true;
  }
  if (platform::isTemporaryName(utf8(path.filename()))) {
    const bool temp = isTempFolder(text);
    if (temp) removeAbandoned(path);
    if (!temp) sweepPairEntry(genericForm(text));
    return true;
  }
  const Kind kind = platform::stampOf(path).kind;
  const bool ordinary = kind == Kind::file || kind == Kind::folder;
  if (kind == Kind::other) HANDLER_INFO("neither a file nor a folder: %s", utf8(text).c_str());
  if (!ordinary) return kind == Kind::other || isNeverSynchronised(path);
  std::wstring message;
  std::wstring errorId = L"path-issue";
  std::wstring name;
  const bool ours = platform::wideOf(path.filename(), name) && isReservedName(name, kind == Kind::folder);
  if (ours || !hasPathIssue(path, message, errorId)) return isNeverSynchronised(path);
  quarantineOnce(path, message, errorId);
  return true;
}

}  // namespace Kelta
