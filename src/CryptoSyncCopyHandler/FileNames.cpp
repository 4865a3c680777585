// SPDX-License-Identifier: Apache-2.0
// How a file's name maps between the sides; folder names are the same on both. The archive of "x" is "x.kelta", its
// plain form, or the encrypted form of NameCipher.cpp, and every device reads both. A plain form that would not be
// read back as the name it is made of (the user's name looks like an encrypted one) is never written: such a name is
// encrypted whatever the flag says.
#include <algorithm>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/NameCipher.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

const std::wstring kExtension = kArchiveExtension;

std::wstring extensionOf(const std::wstring& name) {
  const auto dot = name.rfind(L'.');
  if (dot == std::wstring::npos || name == L"." || name == L"..") return std::wstring();
  return name.substr(dot);
}

}  // namespace

void CryptoSyncCopyHandler::setFNE(bool on) {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  fne_ = on;
}

bool CryptoSyncCopyHandler::namesAreEncrypted() {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  return fne_;
}

bool CryptoSyncCopyHandler::hasExtension(boost::filesystem::path path) {
  std::wstring name;
  platform::wideOf(path.filename(), name);
  const std::wstring extension = extensionOf(name);
  const bool has = extension == kExtension;
  HANDLER_DEBUG("ext=[%s] %d", utf8(extension).c_str(), has ? 1 : 0);
  return has;
}

// The asset that the name at `path`, on either side, belongs to; a bare name belongs to the default one.
std::string CryptoSyncCopyHandler::assetOfName(const std::wstring& path) {
  return parentOf(path).empty() ? keys_.defaultId() : getAssetForPath(platform::pathOf(path));
}

const std::string* CryptoSyncCopyHandler::keyForName(const std::string& assetId) {
  const std::string* const installed = keys_.find(assetId);
  if (installed || assetId.empty()) return installed;
  return askForKey(assetId) ? keys_.find(assetId) : nullptr;
}

std::wstring CryptoSyncCopyHandler::encryptedUnder(const std::string& keyText, const std::wstring& name) {
  if (!isComponent(name)) return std::wstring();
  Secret key(keyText);
  const std::wstring stem = encryptedStem(name, key.text);
  return stem.empty() ? stem : stem + kExtension;
}

std::wstring CryptoSyncCopyHandler::encryptFilename(const std::wstring& path) {
  const std::string* const key = keyForName(assetOfName(path));
  return key ? encryptedUnder(*key, nameOf(path)) : std::wstring();
}

// Under the key of the path's asset, or any other that is installed, since the archive may have been moved by hand, or
// one from before a change of keys. Returns where an addition to the encrypted name begins: its end when there is none,
// 0 when it cannot be read.
std::size_t CryptoSyncCopyHandler::readEncrypted(const std::wstring& path, const std::wstring& stem,
                                                 std::wstring& plain) {
  std::vector<std::string> ids = keys_.ids();
  const std::string own = assetOfName(path);
  if (keyForName(own)) ids.insert(ids.begin(), own);
  for (const std::string& id : ids) {
    for (const std::string* const reader : keys_.readers(id)) {
      Secret key(*reader);
      if (decryptedStem(stem, key.text, plain)) return stem.size();
      if (const std::size_t end = decryptedStart(stem, key.text, plain)) return end;
    }
  }
  return 0;
}

// By the name alone.
NameReading CryptoSyncCopyHandler::readNameItself(const std::wstring& path) {
  const std::wstring name = nameOf(path);
  if (extensionOf(name) != kExtension) return {NameForm::none, std::wstring()};
  NameReading reading = readStem(path, name.substr(0, name.size() - kExtension.size()));
  // What would lead to another folder stands for no file.
  if (!reading.plain.empty() && !isComponent(reading.plain)) reading = {NameForm::noName, std::wstring()};
  return reading;
}

NameReading CryptoSyncCopyHandler::readStem(const std::wstring& path, const std::wstring& stem) {
  if (stem.size() < kShortestEncrypted) return {NameForm::plain, stem};
  std::wstring plain;
  const std::size_t end = readEncrypted(path, stem, plain);
  if (end == stem.size()) return {NameForm::encrypted, plain};
  // Some clients put what they add in front ("Copy of x").
  const std::size_t blank = stem.rfind(L' ');
  const std::wstring behind = blank == std::wstring::npos ? std::wstring() : stem.substr(blank + 1);
  const bool inFront = end == 0 && readEncrypted(path, behind, plain) > 0;
  if (end > 0 || inFront) return {NameForm::copyOfEncrypted, std::wstring()};
  if (!looksEncrypted(stem)) return {NameForm::plain, stem};
  return {keyForName(assetOfName(path)) ? NameForm::unreadable : NameForm::noKey, std::wstring()};
}

// What was written before names could be encrypted may look so: such an archive is known by the file on the Inside.
NameReading CryptoSyncCopyHandler::readName(const std::wstring& path) {
  NameReading reading = readNameItself(path);
  const bool doubtful = reading.form == NameForm::unreadable || reading.form == NameForm::noKey;
  if (!doubtful || !isBelow(path, outsideFolder_)) return reading;
  const std::wstring inside = insideFolder_ + path.substr(outsideFolder_.size());
  const std::wstring plain = inside.substr(0, inside.size() - kExtension.size());
  if (platform::stampOf(platform::pathOf(plain)).kind != platform::Kind::file) return reading;
  return {NameForm::plain, nameOf(plain)};
}

std::wstring CryptoSyncCopyHandler::decryptFilename(const std::wstring& path) {
  const NameReading reading = readName(path);
  return reading.form == NameForm::encrypted ? reading.plain : std::wstring();
}

std::wstring CryptoSyncCopyHandler::untransformName(const std::wstring& path) { return readName(path).plain; }

std::wstring CryptoSyncCopyHandler::transformName(const std::wstring& path) {
  const std::wstring name = nameOf(path);
  if (!isComponent(name)) return std::wstring();
  if (namesAreEncrypted()) return encryptFilename(path);
  const std::wstring plainForm = name + kExtension;
  const bool readsBack =
      name.size() < kShortestEncrypted || readNameItself(joinPath(parentOf(path), plainForm)).plain == name;
  return readsBack ? plainForm : encryptFilename(path);
}

std::vector<std::wstring> CryptoSyncCopyHandler::archiveNames(std::wstring path) {
  path = genericForm(std::move(path));
  std::vector<std::wstring> names{transformName(path)};
  if (names.front().empty()) return {};
  const auto add = [&](const std::wstring& name) {
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  add(nameOf(path) + kExtension);
  add(encryptFilename(path));
  for (const std::string& id : keys_.ids()) {
    for (const std::string* const reader : keys_.readers(id)) add(encryptedUnder(*reader, nameOf(path)));
  }
  return names;
}

std::wstring CryptoSyncCopyHandler::handleName(std::wstring name) {
  name = genericForm(std::move(name));
  return extensionOf(nameOf(name)) == kExtension ? untransformName(name) : transformName(name);
}

std::wstring CryptoSyncCopyHandler::withMappedName(const std::wstring& path) {
  const std::wstring mapped = handleName(path);
  return mapped.empty() ? std::wstring() : joinPath(parentOf(path), mapped);
}

// The archive of a plain path of the Outside under whatever name it has; where it is none, the one it is to get.
std::wstring CryptoSyncCopyHandler::archiveOf(const std::wstring& plainPath) {
  const std::vector<std::wstring> names = archiveNames(plainPath);
  for (const std::wstring& name : names) {
    const boost::filesystem::path path = platform::pathOf(joinPath(parentOf(plainPath), name));
    if (platform::stampOf(path).kind == platform::Kind::file && !platform::hasOtherName(path))
      return joinPath(parentOf(plainPath), name);
  }
  return names.empty() ? std::wstring() : joinPath(parentOf(plainPath), names.front());
}

// Why an archive's name cannot be read, for the quarantine; false when it can.
bool CryptoSyncCopyHandler::hasNameIssue(const std::wstring& path, std::wstring& message, std::wstring& errorId) {
  const NameReading reading = readName(path);
  errorId = reading.form == NameForm::noKey ? L"no-key" : L"path-issue";
  message = reading.form == NameForm::noKey ? L"No key to decrypt the name"
                                            : L"Encrypted name that was changed, or of another key";
  if (reading.plain.empty() && reading.form != NameForm::noName) return reading.form != NameForm::none;
  // The Inside never gives such a name away, and must not get one of our own markers.
  message = L"Archive of a name that is not synchronised";
  if (hasExtension(platform::pathOf(reading.plain)) || isReservedName(reading.plain, false)) return true;
  message = L"Name cannot be stored";
  return !platform::canStandAsName(reading.plain) || reading.plain.find_first_of(L"\t\r\n\\") != std::wstring::npos;
}

}  // namespace Kelta
