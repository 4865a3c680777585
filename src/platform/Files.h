// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Kelta {
namespace platform {

/// What a directory entry is, without following a symbolic link.
enum class Kind { missing, file, folder, symlink, other, unknown };

/// A file as it was at one moment. Two equal stamps mean: not written to in between.
struct FileStamp {
  Kind kind = Kind::missing;     ///< `unknown` when the system refuses to tell (no right to look, I/O error)
  std::int64_t nanoseconds = 0;  ///< last-write time since the epoch, as exact as the file system keeps it
  std::uint64_t size = 0;

  /// The last-write time in whole seconds, rounded down.
  std::int64_t seconds() const { return nanoseconds / 1000000000 - (nanoseconds % 1000000000 < 0 ? 1 : 0); }
  bool sameContent(const FileStamp& other) const {
    return kind == other.kind && nanoseconds == other.nanoseconds && size == other.size;
  }
};

/// What tells an entry from every other one of this machine for as long as it exists, whatever it is called.
struct EntryId {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;

  bool operator==(const EntryId& other) const { return volume == other.volume && number == other.number; }
  bool operator!=(const EntryId& other) const { return !(*this == other); }
};

/// Never throws; symbolic links are not followed.
FileStamp stampOf(const boost::filesystem::path& path);

/// Whether a file or folder of that name, and of no other, can stand in a folder and be used by the user's programs
/// (Windows takes "a." for "a" and "NUL.txt" for a device). The name is one component.
bool canStandAsName(const std::wstring& name);

/// How many characters at the start of a generic path name its volume's root: "/" or, on Windows, "C:/" and
/// "//server/share". 0 for a relative path.
std::size_t rootLength(const std::wstring& path);

/// Sets the last-write time of a file. False when the system refuses.
bool setLastWriteTime(const boost::filesystem::path& path, std::int64_t nanoseconds);

/// Renames `from` to `to` in one step, replacing a file that is there. Throws filesystem_error
/// (across volumes: errc::cross_device_link).
void replaceFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

/// Renames a file within its volume in one step and replaces nothing: false, with nothing done, when something stands
/// under `to` already. Throws filesystem_error.
bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

/// Puts the file `from` in the place of the file `to`, and what stood there in the place of `from`, so that it can
/// still be looked at. False, with nothing done, where the system cannot. Throws filesystem_error (across volumes:
/// errc::cross_device_link; no `to`: errc::no_such_file_or_directory).
///
/// One step, but for Windows. There, ended in the middle, it leaves what stood under `to` beside it under a name that
/// any program sees, "x (replaced 1a2b3c4d).txt" for "x.txt", so that the next scan finds it as a file of its own; `to`
/// is then the new file or, for an instant, missing. What stood there is kept under that name too when it cannot be
/// moved to `from`: the error names it.
bool exchangeFiles(const boost::filesystem::path& from, const boost::filesystem::path& to);

/// Makes a rename or a deletion in `folder` durable, where the system can.
void syncFolder(const boost::filesystem::path& folder);

/// Whether a file call that was refused for this reason may succeed a few seconds later: not for want of rights or of
/// space.
bool mayPassSoon(const boost::system::error_code& error);

/// Whether another program holds the file so that it cannot be read consistently now.
/// Never opens anything but an ordinary file, and never waits.
bool isLocked(const boost::filesystem::path& path);

/// Whether any program, this one included, has the file open for writing or mapped so, as far as the system tells: of
/// files of other users, and on network and some other file systems, it may not. Never waits; a program that opens the
/// file for writing at that very moment is held up for some microseconds. Signals of the host's are left alone.
bool isOpenForWriting(const boost::filesystem::path& path);

/// Whether the folder is a recycle bin, of the user's or of a volume.
bool isRecycleBin(const boost::filesystem::path& folder);

/// Hides a file from the user where that takes an attribute; elsewhere the leading dot does.
void setHidden(const boost::filesystem::path& path);

/// Moves a file into the user's recycle bin; where there is none, removes it. A folder is removed in one step, and
/// only when it is empty, so that nothing which appears in it at the last moment goes along. True also when the entry
/// is gone already; false, with the entry left where it was, when it could not be done; `canceled`, if given, tells
/// that this was a decision and no failure.
bool recycle(const boost::filesystem::path& path, bool* canceled = nullptr);

enum class Recycled { yes, no, noBin };
/// The same for what must not be lost: where there is no recycle bin, the file stays where it is. With `judged` only
/// that goes: a file that was saved at the last moment comes back to its place, if nothing new stands there.
Recycled moveToRecycleBin(const boost::filesystem::path& file, const FileStamp* judged = nullptr,
                          bool* canceled = nullptr);

/// Restricts a file or a folder to its owner, where the file system can. False when it refuses; a link is never
/// followed.
bool restrictToOwner(const boost::filesystem::path& path);

/// As OpenFolder::giveNormalRights(), for the file that stands under `fresh`; a link is not followed.
void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target);

/// Gives a new file that came from another folder the rights that its folder hands down, where folders do that.
void takeFolderRights(const boost::filesystem::path& file);

/// The user's folder for programs' own data; empty when the system names none.
boost::filesystem::path userDataFolder();

/// The name of this machine in its network; empty when it has none.
std::string machineName();

/// The platform's case rule: whether two generic paths name the same entry.
bool samePath(const std::wstring& a, const std::wstring& b);

/// The same for "equals `folder`, which has no trailing separator, or lies below it".
bool liesBelow(const std::wstring& path, const std::wstring& folder);

/// Bytes read at once where a file is copied.
constexpr std::size_t kCopyBufferBytes = 256 * 1024;

/// An open file with 64-bit positions. Failures throw filesystem_error with the path.
class File {
public:
  enum class Mode {
    read,       ///< an existing file, shared with readers, writers and deleters
    adjust,     ///< the same, and its time and rights may be set
    createNew,  ///< a file that must not be there yet, for reading and writing; for the owner alone where files have
                ///< modes
  };
  File(const boost::filesystem::path& path, Mode mode);
  ~File();
  File(File&&) noexcept;
  File& operator=(File&&) noexcept;

  /// Reads up to `size` bytes; fewer only at the end of the file.
  std::size_t read(void* data, std::size_t size);
  void write(const void* data, std::size_t size);
  void seek(std::uint64_t position);
  std::uint64_t position();
  std::uint64_t size();
  /// As platform::setLastWriteTime(); here nothing written before, nor closing the file, changes it again.
  bool setLastWriteTime(std::int64_t nanoseconds);
  /// Returns when everything written is on the disk.
  void flushToDisk();
  /// Closes, and throws when that fails. The destructor closes silently.
  void close();
  /// The stamp and the identity of the open file itself, whatever now stands under its name.
  FileStamp stamp();
  EntryId id();
  /// As platform::restrictToOwner().
  bool restrictToOwner();

private:
  friend class OpenFolder;
  struct Impl;
  explicit File(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace platform
}  // namespace Kelta
