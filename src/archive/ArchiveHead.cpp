// SPDX-License-Identifier: Apache-2.0
#include "archive/ArchiveHead.h"

#include "archive/Archive.h"

namespace Kelta {
namespace archive {
namespace {

using zip::ArchiveError;
using zip::ArchiveFailure;

constexpr std::uint64_t kMaxMetadataBytes = 64 * 1024;

std::string textOf(zip::InputFile& file, const zip::Entry& entry) {
  zip::EntryReader reader(file, entry);
  std::string text(static_cast<std::size_t>(entry.size) + 1, '\0');  // one more, so that the end is reached
  text.resize(reader.read(reinterpret_cast<unsigned char*>(&text[0]), text.size()));
  return text;
}

}  // namespace

ArchiveHead::ArchiveHead(const boost::filesystem::path& archive, const std::string& metadataEntry) : lock_() {
  zip::ArchiveReader reader(archive, kPairRules);
  readLock(reader);
  readMetadata(reader, metadataEntry);
}

void ArchiveHead::readLock(zip::ArchiveReader& reader) {
  const zip::Entry* content = nullptr;
  for (const zip::Entry& entry : reader.entries()) {
    if (entry.name != kContentEntry) continue;
    if (content != nullptr) throw ArchiveError(ArchiveFailure::damaged, "two contents");
    content = &entry;
  }
  if (content == nullptr) throw ArchiveError(ArchiveFailure::noEntry, "no content");
  const zip::EntryReader opened(reader.file(), *content);
  if (!opened.needsPassword()) throw ArchiveError(ArchiveFailure::damaged, "a content that is not encrypted");
  lock_ = opened.lock();
}

void ArchiveHead::readMetadata(zip::ArchiveReader& reader, const std::string& name) {
  std::uint64_t left = kMaxMetadataBytes;
  for (const zip::Entry& entry : reader.entries()) {
    if (entry.name != name) continue;
    if (entry.size > left) throw ArchiveError(ArchiveFailure::foreign, "too much metadata");
    left -= entry.size;
    metadata_.push_back(textOf(reader.file(), entry));
  }
  if (metadata_.empty()) throw ArchiveError(ArchiveFailure::noEntry, "no metadata");
}

bool ArchiveHead::opens(const std::string& password) const {
  zip::DataKey key;
  return !password.empty() && zip::unlock(lock_, password, key);
}

}  // namespace archive
}  // namespace Kelta
