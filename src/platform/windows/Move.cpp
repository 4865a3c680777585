// SPDX-License-Identifier: Apache-2.0
#include <windows.h>

#include "platform/Files.h"
#include "platform/Random.h"
#include "platform/windows/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

namespace fs = boost::filesystem;

constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestEnding = 24;
constexpr int kBesideAttempts = 16;

/// Takes the read-only mark off a file for as long as it lives: the system neither replaces nor removes such a file.
class Writable {
public:
  explicit Writable(const std::wstring& native) : native_(native), attributes_(GetFileAttributesW(native.c_str())) {
    if (marked()) cleared_ = SetFileAttributesW(native.c_str(), attributes_ & ~kReadOnly) != 0;
  }
  ~Writable() {
    if (cleared_) SetFileAttributesW(native_.c_str(), attributes_);
  }
  Writable(const Writable&) = delete;
  Writable& operator=(const Writable&) = delete;
  DWORD attributes() const { return attributes_; }
  /// The file is not there any more.
  void release() { cleared_ = false; }

private:
  bool marked() const {
    constexpr DWORD folderOrMark = kReadOnly | FILE_ATTRIBUTE_DIRECTORY;
    return attributes_ != INVALID_FILE_ATTRIBUTES && (attributes_ & folderOrMark) == kReadOnly;
  }
  std::wstring native_;
  DWORD attributes_;
  bool cleared_ = false;
};

/// The error of a rename, 0 when it went well.
DWORD rename(const std::wstring& from, const std::wstring& to, DWORD flags) {
  Passing passing;
  for (;;) {
    if (MoveFileExW(from.c_str(), to.c_str(), flags | MOVEFILE_WRITE_THROUGH)) return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    if (!passing.waitsFor(error)) return error;
  }
}

/// A free name beside `path` that shows what it is and keeps the extension: "x (replaced 1a2b3c4d).txt".
fs::path besideName(const fs::path& path) {
  const std::wstring name = path.filename().native();
  for (int attempt = 0; attempt < kBesideAttempts; ++attempt) {
    std::uint32_t word = 0;
    if (!stirringWord(word)) word = GetTickCount();
    wchar_t digits[9] = {};
    swprintf(digits, 9, L"%08x", static_cast<unsigned>(word));
    const std::wstring mark = std::wstring(L" (replaced ") + digits + L")";
    std::size_t dot = std::min(name.find(L'.', 1), name.size());
    if (name.size() - dot > kLongestEnding) dot = std::min(name.rfind(L'.'), name.size());
    const std::wstring ending = name.substr(std::max<std::size_t>(dot, 1)).substr(0, kLongestEnding);
    const std::wstring stem = name.substr(0, std::min(dot, kLongestName - mark.size() - ending.size()));
    const fs::path beside = path.parent_path() / (stem + mark + ending);
    if (stampOf(beside).kind == Kind::missing) return beside;
  }
  failNative("exchange", path, ERROR_CANT_ACCESS_FILE);
}

bool isUnknownCall(DWORD error) {
  return error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED || error == ERROR_CALL_NOT_IMPLEMENTED;
}

/// Throws unless both are files of one volume.
void requireTwoFiles(const fs::path& from, const fs::path& to) {
  EntryId ids[2];
  FileStamp stamp;
  const fs::path* const paths[] = {&from, &to};
  for (int i = 0; i < 2; ++i) {
    const Handle handle = openToLook(nativePath(*paths[i]));
    if (!handle || !lookAtHandle(handle.get(), stamp, ids[i])) failNative("exchange", *paths[i], GetLastError());
    if (stampOf(*paths[i]).kind != Kind::file) failNative("exchange", *paths[i], ERROR_CANT_ACCESS_FILE);
  }
  if (ids[0].volume != ids[1].volume) failNative("exchange", to, ERROR_NOT_SAME_DEVICE);
}

/// Puts `from` in the place of `to`, which goes to `beside`. The error, 0 when it went well.
DWORD replaceKeeping(const std::wstring& from, const std::wstring& to, const std::wstring& beside) {
  Passing passing;
  for (;;) {
    if (ReplaceFileW(to.c_str(), from.c_str(), beside.c_str(), REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr))
      return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    // Done by half: `to` was moved already.
    if (error == ERROR_UNABLE_TO_MOVE_REPLACEMENT_2) rename(beside, to, 0);
    if (!passing.waitsFor(error)) return error;
  }
}

}  // namespace

void replaceFile(const fs::path& from, const fs::path& to) {
  const std::wstring target = nativePath(to);
  Writable former(target);
  const DWORD error = rename(nativePath(from), target, MOVEFILE_REPLACE_EXISTING);
  if (error != ERROR_SUCCESS) failNative("rename", to, error);
  former.release();
}

bool moveFile(const fs::path& from, const fs::path& to) {
  if (MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(), MOVEFILE_WRITE_THROUGH)) return true;
  const DWORD error = GetLastError();
  if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) return false;
  failNative("rename", from, error);
}

// The system does it in steps of its own: `to` → the name beside it, `from` → `to`; it hands the former's marks, times
// of creation and further streams on to the new file, and the writing of these changes its time.
bool exchangeFiles(const fs::path& from, const fs::path& to) {
  requireTwoFiles(from, to);
  const std::wstring source = nativePath(from);
  const std::wstring target = nativePath(to);
  const fs::path beside = besideName(to);
  const FileStamp placed = stampOf(from);
  Writable fresh(source);
  Writable former(target);
  const DWORD error = replaceKeeping(source, target, nativePath(beside));
  if (isUnknownCall(error)) return false;
  if (error != ERROR_SUCCESS) failNative("exchange", to, error);
  fresh.release();
  former.release();
  if (stampOf(to).size == placed.size) setLastWriteTime(to, placed.nanoseconds);
  SetFileAttributesW(target.c_str(), fresh.attributes());
  SetFileAttributesW(nativePath(beside).c_str(), former.attributes());
  const DWORD kept = rename(nativePath(beside), source, 0);
  if (kept != ERROR_SUCCESS) failNative("exchange: what was replaced is kept", beside, kept);
  return true;
}

}  // namespace platform
}  // namespace Kelta
