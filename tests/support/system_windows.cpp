// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <windows.h>

#include <boost/filesystem/operations.hpp>

#include "Content.h"
#include "System.h"
#include "TempFolder.h"
#include "platform/Files.h"

namespace Kelta {
namespace test {

namespace fs = boost::filesystem;

namespace {

/// Wine moves files to the desktop's trash: here it lies in a folder of this process.
fs::path wineTrash() {
  using UnixName = char*(CDECL*)(const wchar_t*);
  static const auto unixName = reinterpret_cast<UnixName>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
  if (!unixName) return {};
  static const TempFolder folder;
  static const bool told = SetEnvironmentVariableA("XDG_DATA_HOME", unixName(folder.path().c_str()));
  EXPECT_TRUE(told);
  return folder / "Trash/files";
}

}  // namespace

void setVariable(const char* name, const fs::path& value) {
  SetEnvironmentVariableW(fs::path(name).c_str(), value.c_str());
}
void clearVariable(const char* name) { SetEnvironmentVariableW(fs::path(name).c_str(), nullptr); }

// Wine claims to have made a link and makes none.
bool makeLink(const fs::path& target, const fs::path& link) {
  constexpr DWORD unprivileged = 2;
  const DWORD kind = fs::is_directory(target) ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0;
  return CreateSymbolicLinkW(link.c_str(), target.c_str(), kind | unprivileged) &&
         platform::stampOf(link).kind == platform::Kind::symlink;
}

bool makePipe(const fs::path&) { return false; }

// There is one kind, half a surrogate pair, and Wine does not take that either.
std::vector<std::string> unusableNames() { return {}; }

std::string awkwardName() { return "'quote' \xC3\xA4 %TEMP% %d.txt"; }

struct HeldFile::Impl {
  HANDLE file = INVALID_HANDLE_VALUE;
};

HeldFile::HeldFile(const fs::path& path) : impl_(std::make_unique<Impl>()) {
  impl_->file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_NE(impl_->file, INVALID_HANDLE_VALUE);
}
HeldFile::~HeldFile() { CloseHandle(impl_->file); }
void HeldFile::write(const std::string& text) {
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(impl_->file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
}

RecycleBin::RecycleBin(const fs::path&) : before_(files()) {}
RecycleBin::~RecycleBin() = default;

std::set<fs::path> RecycleBin::files() const {
  std::set<fs::path> found;
  boost::system::error_code ignored;
  for (const fs::path& folder : {wineTrash(), fs::temp_directory_path().root_path() / "$Recycle.Bin"})
    for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ignored), end;
         it != end; it.increment(ignored))
      if (fs::is_regular_file(it->path(), ignored)) found.insert(it->path());
  return found;
}

std::multiset<std::string> RecycleBin::contents() const {
  std::multiset<std::string> found;
  for (const fs::path& file : files())
    if (before_.count(file) == 0) found.insert(readFile(file));
  return found;
}

}  // namespace test
}  // namespace Kelta
