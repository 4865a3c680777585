// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/ArchiveEngine.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <set>

#include "archive/zip/EntryName.h"
#include "platform/Folders.h"
#include "platform/Text.h"

namespace Kelta {
namespace zip {

namespace fs = boost::filesystem;

namespace {

constexpr int kPasswordAttempts = 3;

[[noreturn]] void fail(ArchiveFailure failure, const std::string& what) { throw ArchiveError(failure, what); }

/// The file's own name as an entry's name; "unsafeName" when it has no exact form in UTF-8.
std::string ownName(const fs::path& source) {
  std::wstring wide;
  if (!platform::wideOf(source.filename(), wide)) fail(ArchiveFailure::unsafeName, "a name that is no valid text");
  return platform::utf8(wide);
}

fs::path pathOfComponent(const std::string& name) {
  std::wstring wide;
  if (!platform::wideFromUtf8(name, wide) || !platform::canStandAsName(wide))
    fail(ArchiveFailure::unsafeName, name + ": not a name for this system");
  return platform::pathOf(wide);
}

/// The file that a link leads to, so that replacing it leaves the link alone.
fs::path behindLink(const fs::path& path) {
  if (platform::stampOf(path).kind != platform::Kind::symlink) return path;
  boost::system::error_code error;
  const fs::path target = fs::canonical(path, error);
  return error ? path : target;
}

void makeFolder(const fs::path& folder) {
  boost::system::error_code error;
  platform::createFolders(folder, error);
  if (error || platform::kindBehindLinks(folder) != platform::Kind::folder)
    fail(ArchiveFailure::cannotWrite, platform::utf8(folder) + ": cannot be created");
}

/// Creates the folders of an entry below `folder`, following no link, and gives the entry's path.
fs::path placeFor(const Entry& entry, const fs::path& folder) {
  makeFolder(folder);
  fs::path place = folder;
  std::size_t start = 0;
  for (std::size_t stop; (stop = entry.name.find('/', start)) != std::string::npos; start = stop + 1) {
    place /= pathOfComponent(entry.name.substr(start, stop - start));
    const platform::Kind kind = platform::stampOf(place).kind;
    if (kind != platform::Kind::missing && kind != platform::Kind::folder)
      fail(ArchiveFailure::cannotWrite, platform::utf8(place) + ": not a folder");
    makeFolder(place);
  }
  return start < entry.name.size() ? place / pathOfComponent(entry.name.substr(start)) : place;
}

}  // namespace

ArchiveType ArchiveEngine::detectArchiveType(const fs::path& archive) {
  InputFile file(archive);
  try {
    findDirectory(file);
  } catch (const ArchiveError& error) {
    if (error.failure() == ArchiveFailure::notAnArchive) return ArchiveType::none;
    if (error.failure() == ArchiveFailure::cannotRead) throw;
  }
  return ArchiveType::zip;
}

void ArchiveEngine::addFile(const fs::path& source, const std::string& entryName, const EntryOptions& options) {
  const std::string name = options.keepsSourceName() ? ownName(source) : entryName;
  checkEntryName(name);
  for (const Addition& other : pending_)
    if (foldedName(other.name) == foldedName(name)) fail(ArchiveFailure::badArgument, "two entries of one name");
  pending_.push_back({source, name, options});
}

void ArchiveEngine::addPending(ArchiveWriter& writer) {
  for (const Addition& addition : pending_) {
    InputFile source(addition.source);
    if (addition.options.encrypted()) {
      askPassword(addition.name, false);
      if (password_.empty()) fail(ArchiveFailure::wrongPassword, "no password was given");
    }
    writer.add(addition.name, source, addition.options, password_.text(),
               [this](std::size_t bytes) { advance(bytes); });
  }
}

void ArchiveEngine::writeArchive(const fs::path& target) {
  done_ = 0;
  if ((writeFlags_ & kReplaceTarget) == 0 && platform::stampOf(target).kind != platform::Kind::missing)
    fail(ArchiveFailure::cannotWrite, platform::utf8(target) + ": exists already");
  for (const Addition& addition : pending_)
    if (platform::sameEntry(addition.source, target))
      fail(ArchiveFailure::badArgument, "a file cannot be packed over itself");
  OutputFile out(target);
  ArchiveWriter writer(out);
  addPending(writer);
  writer.finish();
  out.commit();
  pending_.clear();
}

void ArchiveEngine::copyOthers(ArchiveReader& reader, ArchiveWriter& writer) {
  std::set<std::string> replaced;
  for (const Addition& addition : pending_) replaced.insert(foldedName(addition.name));
  std::vector<const Entry*> kept;
  for (const Entry& entry : reader.entries()) {
    const bool named = replaced.count(foldedName(entry.name)) != 0;
    if (named && entry.encrypted()) fail(ArchiveFailure::badArgument, "an encrypted entry is not replaced");
    if (!named) kept.push_back(&entry);
  }
  std::sort(kept.begin(), kept.end(), [](const Entry* a, const Entry* b) { return a->headerOffset < b->headerOffset; });
  for (const Entry* entry : kept) writer.copy(reader.file(), *entry, [this](std::size_t bytes) { advance(bytes); });
}

void ArchiveEngine::requireOpening(ArchiveReader& reader) {
  for (const Entry& entry : reader.entries()) {
    EntryReader content(reader.file(), entry);
    unlock(content, entry);
  }
}

void ArchiveEngine::updateArchive(const fs::path& archive) { update(behindLink(archive), nullptr, nullptr); }

void ArchiveEngine::updateArchive(const platform::Spot& archive, const platform::Replacement& replace) {
  update(archive.path(), &archive, &replace);
}

void ArchiveEngine::update(const fs::path& place, const platform::Spot* spot, const platform::Replacement* replace) {
  done_ = 0;
  if ((writeFlags_ & kReplaceTarget) == 0) fail(ArchiveFailure::cannotWrite, "updating replaces the archive");
  for (const Addition& addition : pending_)
    if (platform::sameEntry(addition.source, place))
      fail(ArchiveFailure::badArgument, "an archive cannot be packed into itself");
  auto reader = std::make_unique<ArchiveReader>(place, rules_);
  if (expected_ && !reader->file().stamp().sameContent(*expected_))
    fail(ArchiveFailure::changed, "the archive was changed meanwhile");
  if ((updateOption_ & kMustOpen) != 0) requireOpening(*reader);
  OutputFile out = spot ? OutputFile(*spot) : OutputFile(place);
  ArchiveWriter writer(out);
  copyOthers(*reader, writer);
  addPending(writer);
  writer.finish();
  if ((updateOption_ & kKeepTime) != 0) out.setLastWriteTime(reader->file().stamp().nanoseconds);
  out.flushToDisk();
  if (!reader->file().standsUnchangedAt(place)) fail(ArchiveFailure::changed, "the archive was changed meanwhile");
  reader.reset();  // an open file cannot be replaced everywhere
  if (!replace)
    out.commit();
  else if (!out.commitBy(*replace))
    fail(ArchiveFailure::changed, "the archive was changed meanwhile");
  pending_.clear();
}

void ArchiveEngine::extract(const fs::path& archive, const std::string& pattern, const fs::path& folder) {
  done_ = 0;
  ArchiveReader reader(archive, rules_);
  const bool all = pattern == "*";
  if (!all && reader.find(pattern) == nullptr) fail(ArchiveFailure::noEntry, "no entry of that name");
  for (const Entry& entry : reader.entries())
    if (all || entry.name == pattern) extractEntry(reader, entry, archive, folder);
}

void ArchiveEngine::extractEntry(ArchiveReader& reader, const Entry& entry, const fs::path& archive,
                                 const fs::path& folder) {
  EntryReader content(reader.file(), entry);
  if ((extractOption_ & kOnlyEncrypted) != 0 && !content.needsPassword())
    fail(ArchiveFailure::damaged, entry.name + " is not encrypted");
  unlock(content, entry);
  const fs::path place = placeFor(entry, folder);
  if (entry.isFolder()) return;
  const bool taken = platform::stampOf(place).kind != platform::Kind::missing;
  if (taken && ((extractOption_ & kReplaceFiles) == 0 || platform::sameEntry(place, archive)))
    fail(ArchiveFailure::cannotWrite, platform::utf8(place) + ": exists already");
  OutputFile out(place);
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBufferSize]);
  for (std::size_t got = kBufferSize; got == kBufferSize;) {
    got = content.read(buffer.get(), kBufferSize);
    out.write(buffer.get(), got);
    advance(got);
  }
  out.commit();
}

std::string ArchiveEngine::extractText(const fs::path& archive, const std::string& name, std::size_t limit) {
  done_ = 0;
  ArchiveReader reader(archive, rules_);
  const Entry* entry = reader.find(name);
  if (entry == nullptr) fail(ArchiveFailure::noEntry, "no entry of that name");
  if (entry->size > limit) fail(ArchiveFailure::unsupported, "the entry is too large to be read whole");
  EntryReader content(reader.file(), *entry);
  unlock(content, *entry);
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBufferSize]);
  std::string text;
  for (std::size_t got = kBufferSize; got == kBufferSize;) {
    got = content.read(buffer.get(), kBufferSize);
    text.append(reinterpret_cast<const char*>(buffer.get()), got);
  }
  return text;
}

void ArchiveEngine::unlock(EntryReader& content, const Entry& entry) {
  if (!content.needsPassword()) return;
  if (!password_.empty() && content.unlock(password_.text())) return;
  const int attempts = interactive_ ? kPasswordAttempts : 1;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    askPassword(entry.name, attempt > 0);
    if (password_.empty()) break;
    if (content.unlock(password_.text())) return;
  }
  fail(ArchiveFailure::wrongPassword, "the password is not the one of " + entry.name);
}

void ArchiveEngine::askPassword(const std::string& item, bool retry) {
  PasswordRequest request;
  request.item = item;
  request.flags = (interactive_ ? PasswordRequest::kMayPrompt : 0U) | (retry ? PasswordRequest::kRetry : 0U);
  const PasswordAnswer answer = listener_ == nullptr ? PasswordAnswer::none : listener_->password(request, password_);
  if (answer == PasswordAnswer::cancelled) fail(ArchiveFailure::cancelled, "the password prompt was cancelled");
  if (answer == PasswordAnswer::none) password_.assign(std::string());
}

void ArchiveEngine::advance(std::size_t bytes) {
  done_ += bytes;
  if (progress_ && bytes > 0) progress_(done_);
}

}  // namespace zip
}  // namespace Kelta
