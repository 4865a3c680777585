// SPDX-License-Identifier: Apache-2.0
#include "archive/Archive.h"

#include "archive/ConsolePwdListener.h"
#include "archive/zip/ArchiveEngine.h"
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

bool opensContent(const fs::path& archive, const std::string& password) {
  return ArchiveEngine().opens(archive, kContentEntry, password);
}

void replaceMetadata(const fs::path& archive, const platform::FileStamp& known, const fs::path& metadata,
                     const std::string& password, const Progress& progress) {
  ConsolePwdListener passwords(password);
  ArchiveEngine engine;
  engine.setPasswordListener(&passwords);
  engine.setProgress(progress);
  engine.setExpected(known);
  engine.setUpdateOption(ArchiveEngine::kKeepTime | ArchiveEngine::kMustOpen);
  addMetadata(engine, metadata, true);
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.updateArchive(archive);
}

void updateMetadata(const fs::path& archive, const fs::path& metadata) {
  ArchiveEngine engine;
  addMetadata(engine, metadata, true);
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.updateArchive(archive);
}

}  // namespace archive
}  // namespace Kelta
