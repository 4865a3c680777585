// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/ShareMemory.h"

#include <boost/filesystem/exception.hpp>
#include <iterator>
#include <sstream>

#include "CryptoSyncCopyHandler/AssetKeys.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

constexpr std::uint64_t kMaxBytes = 256 * 1024 * 1024;

void logError(const ShareMemory* self, const std::wstring& file, const char* what) {
  KELTA_LOG(log::copyHandler(), log4cplus::ERROR_LOG_LEVEL, self, "%s: %s", platform::utf8(file).c_str(), what);
}

std::string wholeText(const std::wstring& path) {
  platform::File file(platform::pathOf(path), platform::File::Mode::read);
  if (file.size() > kMaxBytes)
    throw boost::filesystem::filesystem_error("too large", make_error_code(boost::system::errc::file_too_large));
  std::string text(static_cast<std::size_t>(file.size()), '\0');
  text.resize(file.read(&text[0], text.size()));
  return text;
}

bool isAtOrBelow(const std::wstring& folder, const std::wstring& base) {
  return base.empty() || folder == base || folder.compare(0, base.size() + 1, base + L"/") == 0;
}

}  // namespace

bool ShareMemory::readLine(const std::string& line) {
  const std::size_t tab = line.find('\t');
  std::wstring folder;
  if (tab == std::string::npos || !platform::wideFromUtf8(line.substr(0, tab), folder)) return false;
  const std::string id = line.substr(tab + 1);
  if (!id.empty() && !AssetKeys::isValidId(id)) return false;
  used_[folder] = id;
  return true;
}

bool ShareMemory::load(const std::wstring& file) {
  used_.clear();
  changed_ = false;
  file_ = file;
  if (platform::stampOf(platform::pathOf(file)).kind == platform::Kind::missing) return true;
  try {
    std::istringstream lines(wholeText(file));
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!readLine(line)) logError(this, file, "skipped a line that is no record");
    }
  } catch (const boost::filesystem::filesystem_error& error) {
    logError(this, file, error.what());
    file_.clear();
    return false;
  }
  return true;
}

const std::string* ShareMemory::usedWith(std::wstring folder, const std::wstring& root) const {
  for (;; folder = parentOf(folder)) {
    const auto found = used_.find(folder);
    if (found != used_.end()) return &found->second;
    if (folder.empty() || folder == root) return nullptr;
  }
}

std::wstring ShareMemory::highestLike(const std::wstring& folder) const {
  const std::string* const own = usedWith(folder, std::wstring());
  std::wstring highest = folder;
  for (std::wstring above = folder; own != nullptr; above = parentOf(above)) {
    const auto found = used_.find(above);
    if (found != used_.end() && found->second != *own) break;
    if (found != used_.end()) highest = above;
    if (above.empty()) break;
  }
  return highest;
}

void ShareMemory::note(const std::wstring& folder, const std::string& assetId) {
  if (folder.find_first_of(L"\t\r\n") != std::wstring::npos) return;  // no such folder is synchronised
  const auto inserted = used_.emplace(folder, assetId);
  if (!inserted.second && inserted.first->second == assetId) return;
  inserted.first->second = assetId;
  changed_ = true;
}

void ShareMemory::noteAll(const std::wstring& base, const std::string& assetId,
                          const std::function<bool(const std::wstring&)>& concerns) {
  for (auto& entry : used_) {
    if (entry.second == assetId || !isAtOrBelow(entry.first, base) || !concerns(entry.first)) continue;
    entry.second = assetId;
    changed_ = true;
  }
}

void ShareMemory::follow(const std::wstring& from, const std::wstring& to, bool isFolder) {
  const std::string* const found = usedWith(isFolder ? from : parentOf(from), std::wstring());
  if (!found) return;
  const std::string before = *found;
  for (auto entry = used_.begin(); isFolder && entry != used_.end();) {
    const bool moves = isAtOrBelow(entry->first, from);
    if (moves) used_[to + entry->first.substr(from.size())] = entry->second;
    changed_ = changed_ || moves;
    entry = moves ? used_.erase(entry) : std::next(entry);
  }
  const std::wstring folder = isFolder ? to : parentOf(to);
  const std::string* const now = usedWith(folder, std::wstring());
  if (!now || *now != before) note(folder, before);
}

void ShareMemory::save() {
  if (!changed_ || file_.empty()) return;
  std::string text;
  for (const auto& entry : used_) text += platform::utf8(entry.first) + "\t" + entry.second + "\n";
  try {
    boost::system::error_code unmade;  // then the file cannot be made either
    platform::createFolders(platform::pathOf(parentOf(file_)), unmade);
    platform::writeWholeFile(platform::pathOf(file_), text, true);
    changed_ = false;
  } catch (const boost::filesystem::filesystem_error& error) {
    logError(this, file_, error.what());
  }
}

}  // namespace Kelta
