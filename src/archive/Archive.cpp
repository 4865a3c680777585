// SPDX-License-Identifier: Apache-2.0
#include "archive/Archive.h"

#include <zlib.h>

#include <vector>

#include "archive/ArchiveHead.h"
#include "archive/ConsolePwdListener.h"
#include "archive/zip/ArchiveEngine.h"
#include "archive/zip/ArchiveReader.h"
#include "archive/zip/FileStreams.h"
#include "platform/Text.h"

namespace Kelta {
namespace archive {

namespace fs = boost::filesystem;
using zip::ArchiveEngine;
using zip::ArchiveError;
using zip::ArchiveFailure;
using zip::EntryOptions;

const char* const kContentEntry = "Content";

namespace {

constexpr int kLevel = 9;
constexpr std::size_t kLargestText = 16 * 1024 * 1024;

EntryOptions optionsFor(bool compress) {
  EntryOptions options;
  if (compress) {
    options.setCompression(zip::kDeflated, kLevel);
  } else {
    options.setCompression(zip::kStored, 0);
  }
  return options;
}

/// The metadata file under its own name, readable without a password.
void addMetadata(ArchiveEngine& engine, const fs::path& metadata, bool compress) {
  EntryOptions options = optionsFor(compress);
  options.setArchiveOption(true);
  engine.addFile(metadata, std::string(), options);
}

bool isCompressed(const fs::path& archive, const std::string& entry) {
  zip::ArchiveReader reader(archive, kPairRules);
  const zip::Entry* const found = reader.find(entry);
  return found != nullptr && found->method != zip::kStored;
}

void packWith(ArchiveEngine& engine, const PackRequest& request) {
  EntryOptions content = optionsFor(request.compress);
  content.setArchiveOption(request.keepSourceName);
  content.setEncryption(zip::kAlgorithmAes256, zip::kKeyBits, request.encryptionFlags);
  engine.addFile(request.source, kContentEntry, content);
  if (!request.metadata.empty()) addMetadata(engine, request.metadata, request.compress);
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.writeArchive(request.target);
}

void unpackWith(ArchiveEngine& engine, const fs::path& archive, const fs::path& folder) {
  engine.setExtractOption(ArchiveEngine::kReplaceFiles);
  engine.extract(archive, "*", folder);
}

}  // namespace

void pack(const PackRequest& request, const Progress& progress) {
  if (request.password.empty()) throw ArchiveError(ArchiveFailure::badArgument, "an empty password");
  ConsolePwdListener passwords(request.password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setProgress(progress);
  packWith(engine, request);
}

void pack(const PackRequest& request, zip::PasswordListener& passwords) {
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setInteractive(true);
  packWith(engine, request);
}

void unpack(const fs::path& archive, const fs::path& folder, const std::string& password, const Progress& progress) {
  ConsolePwdListener passwords(password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setProgress(progress);
  unpackWith(engine, archive, folder);
}

void unpackContent(const fs::path& archive, const fs::path& folder, const std::string& password,
                   const Progress& progress) {
  ConsolePwdListener passwords(password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setProgress(progress);
  engine.setReadingRules(kPairRules);
  engine.setExtractOption(ArchiveEngine::kReplaceFiles | ArchiveEngine::kOnlyEncrypted);
  engine.extract(archive, kContentEntry, folder);
}

void unpack(const fs::path& archive, const fs::path& folder, zip::PasswordListener& passwords) {
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setInteractive(true);
  unpackWith(engine, archive, folder);
}

std::string readEntry(const fs::path& archive, const std::string& entry, const std::string& password) {
  ConsolePwdListener passwords(password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  return engine.extractText(archive, entry, kLargestText);
}

std::string readEntry(const fs::path& archive, const std::string& entry, zip::PasswordListener& passwords) {
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setInteractive(true);
  return engine.extractText(archive, entry, kLargestText);
}

bool holds(const fs::path& archive, const fs::path& file, const Progress& progress) {
  const zip::ArchiveReader reader(archive, kPairRules);
  const zip::Entry* const content = reader.find(kContentEntry);
  zip::InputFile plain(file);
  if (content == nullptr || content->size != plain.size()) return false;
  std::vector<unsigned char> buffer(platform::kCopyBufferBytes);
  std::uint64_t position = 0;
  std::uint32_t crc = 0;
  while (const std::size_t got = plain.readAt(position, buffer.data(), buffer.size())) {
    crc = static_cast<std::uint32_t>(crc32(crc, buffer.data(), static_cast<uInt>(got)));
    position += got;
    if (progress) progress(position);
  }
  return position == content->size && crc == content->crc && !plain.changed();
}

void replaceMetadata(const platform::Spot& archive, const platform::FileStamp& known, const fs::path& metadata,
                     const std::string& password, const platform::Replacement& replace, const Progress& progress) {
  ConsolePwdListener passwords(password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setProgress(progress);
  engine.setReadingRules(kPairRules);
  engine.setExpected(known);
  engine.setUpdateOption(ArchiveEngine::kKeepTime | ArchiveEngine::kMustOpen);
  // The other form has another size, by which a cloud client sees that the file changed.
  addMetadata(engine, metadata, !isCompressed(archive.path(), platform::utf8(metadata.filename())));
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.updateArchive(archive, replace);
}

void updateMetadata(const fs::path& archive, const fs::path& metadata) {
  ArchiveEngine engine;
  addMetadata(engine, metadata, true);
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.updateArchive(archive);
}

}  // namespace archive
}  // namespace Kelta
