// SPDX-License-Identifier: Apache-2.0
// Notifications through ReadDirectoryChangesW, which watches a whole tree at once. Between two calls the system
// collects changes in a buffer of the same size; what does not fit is told as lost.
#include "platform/FolderNotifications.h"

#include <windows.h>

#include <cstring>
#include <system_error>

#include "platform/Text.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {
namespace {

constexpr DWORD kBufferBytes = 0x101C;
constexpr DWORD kFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME | FILE_NOTIFY_CHANGE_ATTRIBUTES |
                          FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
static_assert(kFilter == 0x5F, "what is to be told");

Handle newEvent() {
  Handle event = handleOf(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "folder notifications");
  return event;
}

/// The name under which an open folder stands now; empty where that cannot be told.
std::wstring nameOfOpen(HANDLE folder) {
  std::wstring name(32768, L'\0');
  name.resize(GetFinalPathNameByHandleW(folder, &name[0], static_cast<DWORD>(name.size()), 0));
  return name;
}

class DirectoryChanges : public FolderNotifications {
public:
  explicit DirectoryChanges(const std::wstring& folder) : folder_(folder) {}
  ~DirectoryChanges() override {
    if (!pending_) return;
    DWORD got = 0;
    CancelIoEx(handle_.get(), &overlapped_);
    GetOverlappedResult(handle_.get(), &overlapped_, &got, TRUE);
  }
  DirectoryChanges(const DirectoryChanges&) = delete;
  DirectoryChanges& operator=(const DirectoryChanges&) = delete;

  bool open() override {
    handle_ = handleOf(CreateFileW(nativePath(pathOf(folder_)).c_str(), FILE_LIST_DIRECTORY,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
    if (!handle_) return false;
    name_ = nameOfOpen(handle_.get());
    return issue();
  }

  Event wait(std::vector<std::wstring>& paths) override {
    for (;;) {
      if (!pending_) return Event::ended;
      const HANDLE events[] = {stop_.get(), read_.get()};
      const DWORD index = WaitForMultipleObjects(2, events, FALSE, INFINITE);
      if (index == WAIT_OBJECT_0) return Event::stopped;
      if (index == WAIT_IO_COMPLETION) continue;
      if (index != WAIT_OBJECT_0 + 1) return Event::ended;
      return finish(paths);
    }
  }

  void stop() override { SetEvent(stop_.get()); }

private:
  bool issue() {
    overlapped_ = OVERLAPPED{};
    overlapped_.hEvent = read_.get();
    ResetEvent(read_.get());
    pending_ = ReadDirectoryChangesW(handle_.get(), buffer_, sizeof buffer_, TRUE, kFilter, nullptr, &overlapped_,
                                     nullptr) != 0;
    return pending_;
  }

  Event finish(std::vector<std::wstring>& paths) {
    DWORD got = 0;
    pending_ = false;
    const bool read = GetOverlappedResult(handle_.get(), &overlapped_, &got, FALSE) != 0;
    if (!read && GetLastError() != ERROR_NOTIFY_ENUM_DIR) return Event::ended;
    const bool lost = !read || got == 0;
    if (!lost) collect(got, paths);
    if (nameOfOpen(handle_.get()) != name_ || !issue()) return Event::ended;
    return lost ? Event::lost : Event::changes;
  }

  void collect(DWORD size, std::vector<std::wstring>& paths) const {
    const auto* const bytes = reinterpret_cast<const char*>(buffer_);
    constexpr std::size_t kHead = offsetof(FILE_NOTIFY_INFORMATION, FileName);
    for (std::size_t at = 0; at + kHead <= size;) {
      FILE_NOTIFY_INFORMATION record{};
      std::memcpy(&record, bytes + at, kHead);
      if (record.FileNameLength > size - at - kHead) return;
      std::wstring name(record.FileNameLength / sizeof(wchar_t), L'\0');
      std::memcpy(&name[0], bytes + at + kHead, name.size() * sizeof(wchar_t));
      const bool separated = !folder_.empty() && (folder_.back() == L'\\' || folder_.back() == L'/');
      paths.push_back(folder_ + (separated ? L"" : L"\\") + name);
      if (record.NextEntryOffset == 0) return;
      at += record.NextEntryOffset;
    }
  }

  std::wstring folder_;
  std::wstring name_;
  Handle stop_ = newEvent();
  Handle read_ = newEvent();
  Handle handle_;
  OVERLAPPED overlapped_{};
  DWORD buffer_[kBufferBytes / sizeof(DWORD)] = {};
  bool pending_ = false;
};

}  // namespace

std::unique_ptr<FolderNotifications> folderNotifications(const std::wstring& folder) {
  return std::make_unique<DirectoryChanges>(folder);
}

}  // namespace platform
}  // namespace Kelta
