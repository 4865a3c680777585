// SPDX-License-Identifier: Apache-2.0
#include <windows.h>
// after windows.h
#include <aclapi.h>

#include <array>
#include <memory>

#include "platform/Files.h"
#include "platform/windows/Native.h"

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

bool setList(std::wstring native, ACL* list, DWORD protection) {
  return SetNamedSecurityInfoW(&native[0], SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | protection, nullptr, nullptr,
                               list, nullptr) == ERROR_SUCCESS;
}

bool hasEmptyList(std::wstring native) {
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(&native[0], SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                            &descriptor) != ERROR_SUCCESS)
    return false;
  const LocalBlock<void> owned(descriptor);
  return list && list->AceCount == 0;
}

/// As it stands, with what it has from the folder: both files are in the same one in the end.
void copyList(const std::wstring& from, const std::wstring& to) {
  DWORD size = 0;
  GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
  if (size == 0) return;
  const LocalBlock<void> descriptor(LocalAlloc(LMEM_FIXED, size));
  if (descriptor && GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, descriptor.get(), size, &size))
    SetFileSecurityW(to.c_str(), DACL_SECURITY_INFORMATION, descriptor.get());
}

}  // namespace

bool restrictToOwner(const boost::filesystem::path& path) {
  const Kind kind = stampOf(path).kind;
  if (kind != Kind::file && kind != Kind::folder) return false;
  ProcessUser user;
  if (!user.read()) return false;
  const LocalBlock<ACL> list = listForUserAlone(user.id);
  return list && setList(nativePath(path), list.get(), PROTECTED_DACL_SECURITY_INFORMATION);
}

// The marks stay readable for the rename that follows: the system renames a read-only file, it only does not replace
// one.
void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target) {
  const std::wstring to = nativePath(fresh);
  const std::wstring from = nativePath(target);
  const DWORD former = GetFileAttributesW(from.c_str());
  if (former == INVALID_FILE_ATTRIBUTES || (former & FILE_ATTRIBUTE_DIRECTORY) != 0) return;
  copyList(from, to);
  const DWORD own = GetFileAttributesW(to.c_str());
  if (own != INVALID_FILE_ATTRIBUTES) SetFileAttributesW(to.c_str(), (own & ~kMarks) | (former & kMarks));
}

// A file keeps its list when it is moved; an empty one that is not protected is filled from the folder. Where folders
// hand nothing down it would stay empty, and nobody could open the file.
void takeFolderRights(const boost::filesystem::path& file) {
  const std::wstring native = nativePath(file);
  ACL none{};
  if (!InitializeAcl(&none, sizeof none, ACL_REVISION)) return;
  if (setList(native, &none, UNPROTECTED_DACL_SECURITY_INFORMATION) && hasEmptyList(native)) restrictToOwner(file);
}

}  // namespace platform
}  // namespace Kelta
