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

struct LocalFreer {
  void operator()(void* block) const { LocalFree(block); }
};
template <class T>
using LocalBlock = std::unique_ptr<T, LocalFreer>;

/// The user that this process runs for, with the identifier that `user` points to.
struct ProcessUser {
  std::array<unsigned char, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> room{};
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

}  // namespace

bool restrictToOwner(const boost::filesystem::path& path) {
  const Kind kind = stampOf(path).kind;
  if (kind != Kind::file && kind != Kind::folder) return false;
  ProcessUser user;
  if (!user.read()) return false;
  const LocalBlock<ACL> list = listForUserAlone(user.id);
  return list && setList(nativePath(path), list.get(), PROTECTED_DACL_SECURITY_INFORMATION);
}

// A new file has the rights that its folder hands down; only a list that its owner has cut off from
// the folder has to be carried over.
void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target) {
  std::wstring native = nativePath(target);
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR found = nullptr;
  if (GetNamedSecurityInfoW(&native[0], SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                            &found) != ERROR_SUCCESS)
    return;
  const LocalBlock<void> descriptor(found);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  if (!GetSecurityDescriptorControl(found, &control, &revision) || (control & SE_DACL_PROTECTED) == 0) return;
  setList(nativePath(fresh), list, PROTECTED_DACL_SECURITY_INFORMATION);
}

}  // namespace platform
}  // namespace Kelta
