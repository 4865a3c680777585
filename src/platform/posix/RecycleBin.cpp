// SPDX-License-Identifier: Apache-2.0
//
// The desktop's trash: a folder with "files" (what was thrown away) and "info" (for each, a
// ".trashinfo" file of the same name that tells where it came from and when). The user's own
// lies in the data folder and serves that volume; on another volume it is ".Trash/<uid>" at its top, where the
// administrator has prepared ".Trash", else ".Trash-<uid>".
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>

#include "platform/OpenFolder.h"
#include "platform/Random.h"
#include "platform/posix/Move.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kLongestBinName = 230;  // leaves room for a number and ".trashinfo"
constexpr int kBinNameAttempts = 32;
constexpr int kNumberedAttempts = 8;  // then random names: a thousand files of one name must not cost a million looks

enum class Outcome { done, unsuitable, failed };

/// Whether an error says something about the moment, not about the place.
bool isPassing(int error) {
  return error == ENOSPC || error == EDQUOT || error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO ||
         error == EINTR;
}

Outcome outcomeOf(int error) { return isPassing(error) ? Outcome::failed : Outcome::unsuitable; }

struct Trash {
  fs::path folder;
  fs::path top;  ///< paths are recorded relative to it; empty: in full
};

/// What a file can be renamed within: one device may be mounted in several places, and no rename crosses a mount.
struct Volume {
  dev_t device = 0;
  std::uint64_t mount = 0;  ///< 0 where the system does not number its mounts
};

bool volumeOf(int folder, const char* path, int flags, Volume& volume) {
  struct stat status {};
  if (fstatat(folder, path, &status, flags) != 0) return false;
  volume.device = status.st_dev;
  volume.mount = 0;
  struct statx more {};
  if (statx(folder, path, flags, STATX_MNT_ID, &more) == 0 && (more.stx_mask & STATX_MNT_ID) != 0)
    volume.mount = more.stx_mnt_id;
  return true;
}

bool isOnVolume(fs::path path, const Volume& wanted) {
  Volume volume;
  while (!volumeOf(AT_FDCWD, path.c_str(), 0, volume)) {
    if (!path.has_parent_path()) return false;
    path = path.parent_path();
  }
  return volume.device == wanted.device && volume.mount == wanted.mount;
}

fs::path topOfVolume(fs::path folder, const Volume& volume) {
  while (folder.has_parent_path() && isOnVolume(folder.parent_path(), volume)) folder = folder.parent_path();
  return folder;
}

/// A folder for our user alone; one that exists must be a real one and ours.
Outcome makePrivateFolder(const fs::path& folder) {
  if (mkdir(folder.c_str(), S_IRWXU) == 0) return Outcome::done;
  if (errno != EEXIST) return outcomeOf(errno);
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return outcomeOf(errno);
  return S_ISDIR(status.st_mode) && status.st_uid == getuid() ? Outcome::done : Outcome::unsuitable;
}

bool isPreparedByAdministrator(const fs::path& shared) {
  struct stat status {};
  return lstat(shared.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
}

Outcome findOwnTrash(Trash& trash) {
  boost::system::error_code error;
  const fs::path data = userDataFolder();
  fs::create_directories(data, error);
  if (error) return outcomeOf(error.value());
  trash = {data / "Trash", fs::path()};
  return makePrivateFolder(trash.folder);
}

Outcome findVolumeTrash(const fs::path& top, Trash& trash) {
  const std::string user = std::to_string(getuid());
  trash = {top / ".Trash" / user, top};
  if (isPreparedByAdministrator(top / ".Trash") && makePrivateFolder(trash.folder) == Outcome::done)
    return Outcome::done;
  trash.folder = top / (".Trash-" + user);
  return makePrivateFolder(trash.folder);
}

/// What is thrown away: a name in an open folder, whose path tells where it was.
struct Origin {
  int folder;
  fs::path folderPath;
  fs::path name;

  fs::path path() const { return folderPath / name; }
  FileStamp stamp() const {
    struct stat status {};
    return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? stampOfStatus(status)
                                                                            : stampOfError(errno);
  }
};

Outcome findTrash(const Origin& origin, Trash& trash) {
  Volume volume;
  if (!volumeOf(origin.folder, "", AT_EMPTY_PATH, volume)) return outcomeOf(errno);
  const fs::path data = userDataFolder();
  Outcome outcome = !data.empty() && isOnVolume(data, volume)
                        ? findOwnTrash(trash)
                        : findVolumeTrash(topOfVolume(origin.folderPath, volume), trash);
  for (const char* part : {"files", "info"})
    if (outcome == Outcome::done) outcome = makePrivateFolder(trash.folder / part);
  return outcome;
}

std::string percentEncoded(const std::string& path) {
  static const std::string plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~/";
  std::string encoded;
  for (const char c : path) {
    if (plain.find(c) != std::string::npos) {
      encoded.push_back(c);
    } else {
      const unsigned byte = static_cast<unsigned char>(c);
      encoded += {'%', "0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 0xF]};
    }
  }
  return encoded;
}

std::string infoFor(const fs::path& entry, const Trash& trash) {
  std::string origin = entry.native();
  if (!trash.top.empty()) origin.erase(0, trash.top.native().size() + (trash.top == "/" ? 0 : 1));
  const time_t now = time(nullptr);
  struct tm local {};
  std::array<char, 32> date{};
  localtime_r(&now, &local);
  strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
  return "[Trash Info]\nPath=" + percentEncoded(origin) + "\nDeletionDate=" + date.data() + "\n";
}

/// Reserves a name in the trash by its info file. Throws filesystem_error (errc::file_exists: taken).
void writeInfo(const fs::path& info, const std::string& text) {
  File file(info, File::Mode::createNew);
  try {
    file.write(text.data(), text.size());
    file.flushToDisk();
    file.close();
  } catch (...) {
    unlink(info.c_str());
    throw;
  }
}

std::string nameInTrash(const fs::path& entry, int attempt) {
  std::string name = entry.filename().native();
  if (name.size() > kLongestBinName) {
    std::size_t cut = kLongestBinName;
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
    name.resize(cut);
  }
  if (attempt == 1) return name;
  std::uint32_t word = static_cast<std::uint32_t>(attempt);
  if (attempt > kNumberedAttempts) stirringWord(word);
  return name + "." + std::to_string(word);
}

// Whether what was thrown away is to stay there; otherwise it is back in its place.
bool isRightOne(const fs::path& thrown, const Origin& origin, const FileStamp* judged) {
  if (!judged || stampOf(thrown).sameContent(*judged)) return true;
  return renameWithoutReplacing(AT_FDCWD, thrown, origin.folder, origin.name) != 0;
}

Outcome throwAway(const Origin& origin, const Trash& trash, const FileStamp* judged) {
  const std::string text = infoFor(origin.path(), trash);
  for (int attempt = 1; attempt <= kBinNameAttempts; ++attempt) {
    const std::string name = nameInTrash(origin.name, attempt);
    const fs::path info = trash.folder / "info" / (name + ".trashinfo");
    try {
      writeInfo(info, text);
    } catch (const fs::filesystem_error& error) {
      if (error.code() == boost::system::errc::file_exists) continue;
      return outcomeOf(error.code().value());
    }
    const fs::path thrown = trash.folder / "files" / name;
    const int error = renameWithoutReplacing(origin.folder, origin.name, AT_FDCWD, thrown);
    if (error == 0 && !isRightOne(thrown, origin, judged)) {
      unlink(info.c_str());
      return Outcome::failed;
    }
    if (error == 0) {
      syncFolder(trash.folder / "files");
      syncFolder(trash.folder / "info");
      return Outcome::done;
    }
    unlink(info.c_str());
    if (error != EEXIST) return Outcome::failed;
  }
  return Outcome::failed;
}

/// Where an open folder lies, whatever stands under the path that it was opened by. Throws filesystem_error.
fs::path realPath(int folder, const fs::path& path) {
  boost::system::error_code error;
  const fs::path real = fs::read_symlink("/proc/self/fd/" + std::to_string(folder), error);
  return error ? fs::canonical(fs::absolute(path)) : real;
}

}  // namespace

Recycled moveToBin(int folder, const fs::path& folderPath, const fs::path& name, const FileStamp* judged) try {
  const Origin origin{folder, realPath(folder, folderPath), name};
  if (judged && !origin.stamp().sameContent(*judged)) return Recycled::no;
  Trash trash;
  Outcome outcome = findTrash(origin, trash);
  if (outcome == Outcome::done) outcome = throwAway(origin, trash, judged);
  if (outcome == Outcome::unsuitable) return Recycled::noBin;
  return outcome == Outcome::done ? Recycled::yes : Recycled::no;
} catch (const std::exception&) {
  return Recycled::no;
}

Recycled moveToRecycleBin(const boost::filesystem::path& file, const FileStamp* judged, bool* canceled) try {
  return OpenFolder(file.parent_path()).throwAway(file.filename(), judged, canceled);
} catch (const std::exception&) {
  return Recycled::no;
}

bool recycle(const boost::filesystem::path& path, bool* canceled) try {
  if (canceled) *canceled = false;
  const Kind kind = stampOf(path).kind;
  if (kind == Kind::missing) return true;
  if (kind == Kind::unknown) return false;
  if (kind == Kind::folder) return rmdir(path.c_str()) == 0;
  const Recycled recycled = moveToRecycleBin(path);
  if (recycled == Recycled::noBin) return unlink(path.c_str()) == 0;
  return recycled == Recycled::yes;
} catch (const std::exception&) {
  return false;
}

bool isRecycleBin(const boost::filesystem::path& folder) {
  const std::string name = folder.filename().native();
  if (name == ".Trash") return true;
  const std::string start = ".Trash-";
  if (name.compare(0, start.size(), start) == 0 && name.size() > start.size())
    return name.find_first_not_of("0123456789", start.size()) == std::string::npos;
  boost::system::error_code error;
  return name == "Trash" && fs::equivalent(folder, userDataFolder() / name, error) && !error;
}

}  // namespace platform
}  // namespace Kelta
