// SPDX-License-Identifier: Apache-2.0
// The system has no calls relative to an open folder. Instead the folder and those that led to it are held without
// leave to rename or delete them: as long as they are, their paths lead nowhere else.
#include "platform/OpenFolder.h"

#include <windows.h>

#include <boost/filesystem/exception.hpp>

#include "platform/Folders.h"
#include "platform/windows/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

namespace fs = boost::filesystem;

bool isPlain(const fs::path& name) {
  const std::wstring& text = name.native();
  return !text.empty() && text != L"." && text != L".." && text.find_first_of(L"/\\:") == std::wstring::npos &&
         text.find(L'\0') == std::wstring::npos;
}

/// Only an open that asks for some right to the content keeps others from renaming and deleting.
Handle holdFolder(const std::wstring& native, DWORD flags) {
  Passing passing;
  for (DWORD access = FILE_LIST_DIRECTORY;;) {
    Handle handle =
        handleOf(CreateFileW(native.c_str(), access | FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
    const DWORD error = handle ? ERROR_SUCCESS : GetLastError();
    if (error == ERROR_ACCESS_DENIED && access == FILE_LIST_DIRECTORY) {
      access = FILE_TRAVERSE;  // a folder that may be passed through, but not listed
    } else if (error != ERROR_SHARING_VIOLATION || !passing.waitsFor(error)) {
      SetLastError(error);
      return handle;
    }
  }
}

using boost::system::errc::errc_t;

[[noreturn]] void fail(const char* what, const fs::path& path, errc_t reason) {
  throw fs::filesystem_error(what, path, make_error_code(reason));
}

void requireFolder(const fs::path& path, Kind kind) {
  if (kind == Kind::missing) fail("open folder", path, errc_t::no_such_file_or_directory);
  if (kind == Kind::unknown) fail("open folder", path, errc_t::permission_denied);
  if (kind != Kind::folder) fail("open folder", path, errc_t::not_a_directory);
}

}  // namespace

struct OpenFolder::Impl {
  fs::path path;
  Handle handle;
  std::shared_ptr<const Impl> above;
};

OpenFolder::OpenFolder(const fs::path& folder) {
  const fs::path named = folder.empty() ? fs::path(L".") : folder;
  Handle handle = holdFolder(nativePath(named), 0);
  if (!handle) failNative("open folder", folder, GetLastError());
  requireFolder(folder, kindBehindLinks(named));
  impl_ = std::make_shared<const Impl>(Impl{folder, std::move(handle), nullptr});
}

const fs::path& OpenFolder::path() const { return impl_->path; }

fs::path OpenFolder::pathOf(const fs::path& name) const {
  if (!isPlain(name)) fail("not a plain name", impl_->path / name, errc_t::invalid_argument);
  return impl_->path / name;
}

void OpenFolder::requireSame(const char* what, const fs::path& name, const EntryId& id) const {
  const Entry found = look(name);
  if (found.stamp.kind == Kind::unknown) fail(what, pathOf(name), errc_t::permission_denied);
  if (found.stamp.kind == Kind::missing || found.id != id) fail(what, pathOf(name), errc_t::no_such_file_or_directory);
}

// What it is shows once it is held.
OpenFolder OpenFolder::folder(const fs::path& name) const {
  const fs::path full = pathOf(name);
  Handle handle = holdFolder(nativePath(full), FILE_FLAG_OPEN_REPARSE_POINT);
  if (!handle) failNative("open folder", full, GetLastError());
  if (hasOtherName(full)) fail("stands under another name", full, errc_t::no_such_file_or_directory);
  requireFolder(full, stampOf(full).kind);
  return OpenFolder(std::make_shared<const Impl>(Impl{full, std::move(handle), impl_}));
}

OpenFolder OpenFolder::makeFolder(const fs::path& name) const {
  const fs::path full = pathOf(name);
  if (!CreateDirectoryW(nativePath(full).c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
    failNative("create folder", full, GetLastError());
  return folder(name);
}

Entry OpenFolder::look(const fs::path& name) const {
  Entry entry;
  entry.stamp.kind = Kind::other;
  if (!isPlain(name)) return entry;
  const fs::path full = pathOf(name);
  const Handle handle = openToLook(nativePath(full));
  const Kind kind = stampOf(full).kind;
  const bool seen = handle && lookAtHandle(handle.get(), entry.stamp, entry.id);
  entry.stamp.kind = seen || kind == Kind::missing ? kind : Kind::unknown;
  if (seen && hasOtherName(full)) entry.stamp.kind = Kind::other;
  return entry;
}

std::vector<fs::path> OpenFolder::list() const {
  std::vector<fs::path> names;
  boost::system::error_code error;
  listFolder(impl_->path, names, error);
  if (error) failNative("list folder", impl_->path, static_cast<unsigned long>(error.value()));
  for (fs::path& entry : names) entry = entry.filename();
  return names;
}

bool OpenFolder::isOpenForWriting(const fs::path& name) const {
  return isPlain(name) && platform::isOpenForWriting(pathOf(name));
}

File OpenFolder::open(const fs::path& name, File::Mode mode) const {
  return File(std::make_unique<File::Impl>(pathOf(name), mode, Links::refused));
}

void OpenFolder::replace(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("rename", name, id);
  replaceFile(pathOf(name), target);
}

bool OpenFolder::move(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("rename", name, id);
  return moveFile(pathOf(name), target);
}

bool OpenFolder::exchange(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("exchange", name, id);
  return exchangeFiles(pathOf(name), target);
}

bool OpenFolder::remove(const fs::path& name, const EntryId& id, Kind kind) const {
  const fs::path full = pathOf(name);
  const Kind found = look(name).stamp.kind;
  if (found == Kind::missing) return false;
  requireSame("remove", name, id);
  if ((kind == Kind::folder) != (found == Kind::folder)) fail("remove", full, errc_t::operation_not_permitted);
  return removeEntry(full);
}

Recycled OpenFolder::throwAway(const fs::path& name, const FileStamp* judged, bool* canceled) const {
  if (!isPlain(name)) return Recycled::no;
  return moveToRecycleBin(pathOf(name), judged, canceled);
}

void OpenFolder::giveNormalRights(File& fresh, const fs::path& name) const {
  giveRights(fresh.impl_->get("set rights"), nativePath(pathOf(name)));
}

// Renames write through already.
void OpenFolder::sync() const {}

}  // namespace platform
}  // namespace Kelta
