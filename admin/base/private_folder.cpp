#include "admin/base/private_folder.h"

#include "admin/base/failure.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <aclapi.h>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <sddl.h>
#include <vector>

namespace admin {
namespace {

struct LocalMemory {
  void operator()(void* memory) const { LocalFree(memory); }
};
using Descriptor = std::unique_ptr<void, LocalMemory>;

// Full access for the system and the administrators, reading, writing and deleting for the identity, for all that comes
// into the folder as well, and nothing from above.
Descriptor descriptorFor(const std::wstring& identity) {
  const std::wstring text = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;" + identity + L")";
  PSECURITY_DESCRIPTOR made = nullptr;
  require(ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &made, nullptr),
          "an access list cannot be made");
  return Descriptor(made);
}

std::wstring sidText(PSID identity) {
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(identity, &text)) return L"?";
  const Descriptor owner(text);
  return text;
}

std::string nameOf(PSID identity) {
  wchar_t name[256], domain[256];
  DWORD nameSize = 256, domainSize = 256;
  SID_NAME_USE use{};
  if (!LookupAccountSidW(nullptr, identity, name, &nameSize, domain, &domainSize, &use))
    return corvane::toUtf8(sidText(identity));
  return programs::oneLine(domainSize > 0 ? std::wstring(domain) + L"\\" + name : std::wstring(name));
}

// Who runs this process.
std::wstring ownIdentity() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  std::vector<BYTE> buffer(512);
  DWORD needed = 0;
  const BOOL isKnown = GetTokenInformation(token, TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &needed);
  CloseHandle(token);
  return isKnown ? sidText(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid) : std::wstring();
}

// The system, the administrators, Windows's installer of itself; and who runs this, whom an administrator has let do
// so.
bool isTrusted(const std::wstring& identity) {
  constexpr wchar_t kInstaller[] = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  return identity == L"S-1-5-18" || identity == L"S-1-5-32-544" || identity == kInstaller || identity == ownIdentity();
}

// What the folder has.
struct Rights {
  Descriptor memory;
  PSID owner = nullptr;
  PACL list = nullptr;
};

Rights rightsOf(const std::wstring& path) {
  Rights rights;
  PSECURITY_DESCRIPTOR memory = nullptr;
  std::wstring name = path;
  const DWORD error =
      GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                            &rights.owner, nullptr, &rights.list, nullptr, &memory);
  if (error != ERROR_SUCCESS)
    throw SystemFailure(fmt::format("the access list of {} cannot be read", programs::quoted(path)), error);
  rights.memory.reset(memory);
  return rights;
}

}  // namespace

void createPrivateFolder(const std::wstring& path, const std::wstring& identity) {
  const Descriptor descriptor = descriptorFor(identity);
  SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
  require(CreateDirectoryW(path.c_str(), &security),
          fmt::format("the folder {} cannot be made", programs::quoted(path)));
}

void makeFolderPrivate(const std::wstring& path, const std::wstring& identity) {
  const Rights before = rightsOf(path);
  if (!isTrusted(sidText(before.owner))) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("the folder {} is there already and belongs to {}, who can change its rights at any time",
                              programs::quoted(path), nameOf(before.owner)),
                  "Look what is in it, remove it, and do this again.");
  }
  const Descriptor descriptor = descriptorFor(identity);
  BOOL isPresent = FALSE, isDefault = FALSE;
  PACL list = nullptr;
  GetSecurityDescriptorDacl(descriptor.get(), &isPresent, &list, &isDefault);
  std::wstring name = path;
  const DWORD error = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                            DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr,
                                            nullptr, list, nullptr);
  if (error != ERROR_SUCCESS)
    throw SystemFailure(fmt::format("the access list of {} cannot be set", programs::quoted(path)), error);
}

std::string strangersIn(const std::wstring& path, const std::wstring& identity) {
  const Rights rights = rightsOf(path);
  if (!isTrusted(sidText(rights.owner))) return fmt::format("{} (who owns it)", nameOf(rights.owner));
  if (rights.list == nullptr) return "everybody";
  std::string names;
  for (DWORD i = 0; i < rights.list->AceCount; ++i) {
    ACE_HEADER* entry = nullptr;
    if (!GetAce(rights.list, i, reinterpret_cast<void**>(&entry)) || entry->AceType != ACCESS_ALLOWED_ACE_TYPE)
      continue;
    auto* const allowed = reinterpret_cast<ACCESS_ALLOWED_ACE*>(entry);
    PSID const who = &allowed->SidStart;
    const std::wstring text = sidText(who);
    // "The owner" is one of those who were looked at above.
    if (allowed->Mask == 0 || text == identity || text == L"S-1-3-0" || text == L"S-1-3-4" || isTrusted(text)) continue;
    names += fmt::format("{}{}", names.empty() ? "" : ", ", nameOf(who));
  }
  return names;
}

}  // namespace admin
