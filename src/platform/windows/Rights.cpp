// SPDX-License-Identifier: Apache-2.0
#include <windows.h>
// after windows.h
#include <aclapi.h>

#include <array>
#include <boost/filesystem/exception.hpp>
#include <memory>

#include "platform/OpenFolder.h"
#include "platform/windows/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

/// What a file's owner, or a program, has marked it with.
constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

template <class T>
using LocalBlock = std::unique_ptr<T, LocalFreer>;

/// The user that this process runs for, with the identifier that `user` points to.
struct ProcessUser {
  alignas(TOKEN_USER) std::array<unsigned char, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> room{};
  PSID id = nullptr;

  bool read() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
    const Handle token(opened);
    DWORD used = 0;
    if (!GetTokenInformation(token.get(), TokenUser, room.data(), static_cast<DWORD>(room.size()), &used)) return false;
    id = reinterpret_cast<TOKEN_USER*>(room.data())->User.Sid;
    return true;
  }
};

LocalBlock<ACL> listForUserAlone(PSID user) {
  EXPLICIT_ACCESS_W access{};
  access.grfAccessPermissions = FILE_ALL_ACCESS;
  access.grfAccessMode = SET_ACCESS;
  access.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
  access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  access.Trustee.TrusteeType = TRUSTEE_IS_USER;
  access.Trustee.ptstrName = static_cast<wchar_t*>(user);
  ACL* list = nullptr;
  if (SetEntriesInAclW(1, &access, nullptr, &list) != ERROR_SUCCESS) return nullptr;
  return LocalBlock<ACL>(list);
}

bool setList(HANDLE handle, ACL* list, DWORD protection) {
  return SetSecurityInfo(handle, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | protection, nullptr, nullptr, list,
                         nullptr) == ERROR_SUCCESS;
}

bool hasEmptyList(HANDLE handle) {
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(handle, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                      &descriptor) != ERROR_SUCCESS)
    return false;
  const LocalBlock<void> owned(descriptor);
  return list && list->AceCount == 0;
}

/// As it stands, with what it has from the folder: both files are in the same one in the end.
void copyList(const std::wstring& from, HANDLE to) {
  DWORD size = 0;
  GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
  if (size == 0) return;
  const LocalBlock<void> descriptor(LocalAlloc(LMEM_FIXED, size));
  if (descriptor && GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, descriptor.get(), size, &size))
    SetKernelObjectSecurity(to, DACL_SECURITY_INFORMATION, descriptor.get());
}

/// Of the times that go along, zero leaves each as it is.
void copyMarks(DWORD from, HANDLE to) {
  FILE_BASIC_INFO info{};
  if (!GetFileInformationByHandleEx(to, FileBasicInfo, &info, sizeof info)) return;
  FILE_BASIC_INFO wanted{};
  wanted.FileAttributes =
      (info.FileAttributes & ~(kMarks | static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL))) | (from & kMarks);
  if (wanted.FileAttributes == 0) wanted.FileAttributes = FILE_ATTRIBUTE_NORMAL;
  SetFileInformationByHandle(to, FileBasicInfo, &wanted, sizeof wanted);
}

/// Opens what stands under the path itself, to work on its rights.
Handle openForRights(const std::wstring& native) {
  return handleOf(CreateFileW(native.c_str(), READ_CONTROL | WRITE_DAC | FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

}  // namespace

bool restrictHandle(void* handle) {
  ProcessUser user;
  if (!user.read()) return false;
  const LocalBlock<ACL> list = listForUserAlone(user.id);
  return list && setList(handle, list.get(), PROTECTED_DACL_SECURITY_INFORMATION);
}

bool restrictToOwner(const boost::filesystem::path& path) {
  const Handle handle = openForRights(nativePath(path));
  const Kind kind = handle ? stampOf(path).kind : Kind::missing;
  return (kind == Kind::file || kind == Kind::folder) && restrictHandle(handle.get());
}

// The marks stay readable for the rename that follows: the system renames a read-only file, it only does not replace
// one.
void giveRights(void* fresh, const std::wstring& formerNativePath) {
  const DWORD former = GetFileAttributesW(formerNativePath.c_str());
  if (former == INVALID_FILE_ATTRIBUTES || (former & FILE_ATTRIBUTE_DIRECTORY) != 0) return;
  copyList(formerNativePath, fresh);
  copyMarks(former, fresh);
}

void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target) try {
  File file = OpenFolder(fresh.parent_path()).open(fresh.filename(), File::Mode::adjust);
  OpenFolder(target.parent_path()).giveNormalRights(file, target.filename());
} catch (const boost::filesystem::filesystem_error&) {  // it keeps the rights that it was made with
}

// A file keeps its list when it is moved; an empty one that is not protected is filled from the folder. Where folders
// hand nothing down it would stay empty, and nobody could open the file.
void takeFolderRights(const boost::filesystem::path& file) {
  const Handle handle = openForRights(nativePath(file));
  ACL none{};
  if (!handle || stampOf(file).kind != Kind::file || !InitializeAcl(&none, sizeof none, ACL_REVISION)) return;
  if (setList(handle.get(), &none, UNPROTECTED_DACL_SECURITY_INFORMATION) && hasEmptyList(handle.get()))
    restrictHandle(handle.get());
}

}  // namespace platform
}  // namespace Kelta
