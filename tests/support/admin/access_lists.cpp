#include "tests/support/admin/access_lists.h"

#include "tests/support/import_seam.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

MG_IMPORT_SEAM(L"advapi32.dll", GetNamedSecurityInfoW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", SetNamedSecurityInfoW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"kernel32.dll", CreateDirectoryW, FALSE)

namespace admin {
namespace {

std::wstring textOf(PSECURITY_DESCRIPTOR descriptor) {
  wchar_t* text = nullptr;
  EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  std::wstring copy = text == nullptr ? L"" : text;
  LocalFree(text);
  return copy;
}

}  // namespace

void showAccessList(const std::wstring& descriptor) {
  GetNamedSecurityInfoWSeam.replacement = [descriptor](LPCWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* owner,
                                                       PSID*, PACL* list, PACL*, PSECURITY_DESCRIPTOR* made) -> DWORD {
    EXPECT_TRUE(
        ConvertStringSecurityDescriptorToSecurityDescriptorW(descriptor.c_str(), SDDL_REVISION_1, made, nullptr));
    BOOL isDefault = FALSE, isPresent = FALSE;
    *list = nullptr;
    EXPECT_TRUE(GetSecurityDescriptorOwner(*made, owner, &isDefault));
    EXPECT_TRUE(GetSecurityDescriptorDacl(*made, &isPresent, list, &isDefault));
    return ERROR_SUCCESS;
  };
}

void recordAccessLists(std::vector<std::wstring>& lists) {
  CreateDirectoryWSeam.watch = [&lists](LPCWSTR, LPSECURITY_ATTRIBUTES security) {
    lists.push_back(security == nullptr ? L"inherited" : textOf(security->lpSecurityDescriptor));
  };
  SetNamedSecurityInfoWSeam.watch = [&lists](LPCWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION what, PSID, PSID, PACL list,
                                             PACL) {
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE);
    if ((what & PROTECTED_DACL_SECURITY_INFORMATION) != 0)
      SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED);
    lists.push_back(textOf(&descriptor));
  };
}

void refuseReadingAccessList() {
  GetNamedSecurityInfoWSeam.fail(1, ERROR_ACCESS_DENIED);
}

void refuseSettingAccessList() {
  SetNamedSecurityInfoWSeam.fail(1, ERROR_ACCESS_DENIED);
}

void refuseFolder() {
  CreateDirectoryWSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
}

}  // namespace admin
