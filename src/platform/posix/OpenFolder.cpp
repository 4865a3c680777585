// SPDX-License-Identifier: Apache-2.0
#include "platform/OpenFolder.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#include "platform/posix/FileImpl.h"
#include "platform/posix/Move.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

namespace fs = boost::filesystem;

constexpr int kFolder = O_DIRECTORY | O_CLOEXEC;

// A folder that may be passed through, but not listed, can be held as well.
Descriptor openFolder(int above, const fs::path& name, int flags) {
  Descriptor opened(openat(above, name.c_str(), kFolder | O_RDONLY | flags));
  if (opened || errno != EACCES) return opened;
  return Descriptor(openat(above, name.c_str(), kFolder | O_PATH | flags));
}

bool isPlain(const fs::path& name) {
  const std::string& text = name.native();
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos &&
         text.find('\0') == std::string::npos;
}

}  // namespace

struct OpenFolder::Impl {
  fs::path path;
  Descriptor descriptor;

  int at() const { return descriptor.get(); }
};

OpenFolder::OpenFolder(const fs::path& folder) {
  Descriptor opened = openFolder(AT_FDCWD, folder.empty() ? fs::path(".") : folder, 0);
  if (!opened) failWith("open folder", folder, errno);
  impl_ = std::make_shared<const Impl>(Impl{folder, std::move(opened)});
}

const fs::path& OpenFolder::path() const { return impl_->path; }

fs::path OpenFolder::pathOf(const fs::path& name) const {
  if (!isPlain(name)) failWith("not a plain name", impl_->path, fs::path(name), EINVAL);
  return impl_->path / name;
}

void OpenFolder::requireSame(const char* what, const fs::path& name, const EntryId& id) const {
  const fs::path full = pathOf(name);
  struct stat status {};
  if (fstatat(impl_->at(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) failWith(what, full, errno);
  if (idOfStatus(status) != id) failWith(what, full, ENOENT);
}

OpenFolder OpenFolder::folder(const fs::path& name) const {
  const fs::path full = pathOf(name);
  Descriptor opened = openFolder(impl_->at(), name, O_NOFOLLOW);
  if (!opened) failWith("open folder", full, errno == ELOOP ? ENOTDIR : errno);
  return OpenFolder(std::make_shared<const Impl>(Impl{full, std::move(opened)}));
}

OpenFolder OpenFolder::makeFolder(const fs::path& name) const {
  const fs::path full = pathOf(name);
  if (mkdirat(impl_->at(), name.c_str(), S_IRWXU | S_IRWXG | S_IRWXO) != 0 && errno != EEXIST)
    failWith("create folder", full, errno);
  return folder(name);
}

Entry OpenFolder::look(const fs::path& name) const {
  Entry entry;
  struct stat status {};
  if (!isPlain(name)) {
    entry.stamp.kind = Kind::other;
  } else if (fstatat(impl_->at(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    entry = {stampOfStatus(status), idOfStatus(status)};
  } else {
    entry.stamp = stampOfError(errno);
  }
  return entry;
}

std::vector<fs::path> OpenFolder::list() const {
  Descriptor opened(openat(impl_->at(), ".", kFolder | O_RDONLY));
  const std::unique_ptr<DIR, FolderCloser> listing(opened ? fdopendir(opened.get()) : nullptr);
  if (!listing) failWith("list folder", impl_->path, errno);
  opened.release();
  std::vector<fs::path> names;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(listing.get());
    if (!entry && errno != 0) failWith("list folder", impl_->path, errno);
    if (!entry) return names;
    if (isPlain(entry->d_name)) names.emplace_back(entry->d_name);
  }
}

bool OpenFolder::isOpenForWriting(const fs::path& name) const {
  return isPlain(name) && isWrittenTo(impl_->at(), name);
}

File OpenFolder::open(const fs::path& name, File::Mode mode) const {
  const fs::path full = pathOf(name);
  Descriptor opened(openat(impl_->at(), name.c_str(), openFlags(mode) | O_NOFOLLOW, S_IRUSR | S_IWUSR));
  return File(std::make_unique<File::Impl>(full, std::move(opened)));
}

void OpenFolder::replace(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("rename", name, id);
  if (renameat(impl_->at(), name.c_str(), to.impl_->at(), toName.c_str()) != 0)
    failWith("rename", pathOf(name), target, errno);
}

bool OpenFolder::move(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("rename", name, id);
  const int error = renameWithoutReplacing(impl_->at(), name, to.impl_->at(), toName);
  if (error != 0 && error != EEXIST) failWith("rename", pathOf(name), target, error);
  return error == 0;
}

bool OpenFolder::exchange(const fs::path& name, const EntryId& id, const OpenFolder& to, const fs::path& toName) const {
  const fs::path target = to.pathOf(toName);
  requireSame("exchange", name, id);
  const int error = exchangeEntries(impl_->at(), name, to.impl_->at(), toName);
  if (error != 0 && !isUnknownRename(error)) failWith("exchange", pathOf(name), target, error);
  return error == 0;
}

bool OpenFolder::remove(const fs::path& name, const EntryId& id, Kind kind) const {
  const fs::path full = pathOf(name);
  struct stat status {};
  if (fstatat(impl_->at(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return false;
    failWith("remove", full, errno);
  }
  if (idOfStatus(status) != id) failWith("remove", full, ENOENT);
  if (unlinkat(impl_->at(), name.c_str(), kind == Kind::folder ? AT_REMOVEDIR : 0) == 0) return true;
  if (errno != ENOENT) failWith("remove", full, errno);
  return false;
}

Recycled OpenFolder::throwAway(const fs::path& name, const FileStamp* judged, bool* canceled) const {
  if (canceled) *canceled = false;
  return isPlain(name) ? moveToBin(impl_->at(), impl_->path, name, judged) : Recycled::no;
}

void OpenFolder::giveNormalRights(File& fresh, const fs::path& name) const {
  struct stat former {};
  const bool replaces =
      isPlain(name) && fstatat(impl_->at(), name.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(former.st_mode);
  giveRights(fresh.impl_->descriptor.get(), replaces ? &former : nullptr);
}

void OpenFolder::sync() const { fsync(impl_->at()); }

}  // namespace platform
}  // namespace Kelta
