#include "corvane/records/host_properties.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/import_seam.h"

#include <windows.h>

#include <cstring>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegGetValueW, ERROR_FILE_NOT_FOUND)

namespace {

class KeyFileTest : public testing::Test {
 protected:
  static void answer(LSTATUS status, const wchar_t* text) {
    RegGetValueWSeam.replacement = [status, text](HKEY root, LPCWSTR key, LPCWSTR name, DWORD flags, LPDWORD,
                                                  PVOID data, LPDWORD size) -> LSTATUS {
      EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
      EXPECT_STREQ(key, L"SOFTWARE\\Quillfern\\Corvane");
      EXPECT_STREQ(name, L"KeyFile");
      EXPECT_EQ(flags, static_cast<DWORD>(RRF_RT_REG_SZ));
      const std::size_t bytes = (std::wcslen(text) + 1) * sizeof(wchar_t);
      if (status == ERROR_SUCCESS && bytes <= *size) std::memcpy(data, text, bytes);
      return status;
    };
  }

  static std::wstring failure() {
    try {
      HostProperties::getInstance().keyFile();
    } catch (const CS_Exception& exception) {
      EXPECT_EQ(exception.number(), corvane::kKeyNeeded);
      return exception.detail();
    }
    return L"nothing was thrown";
  }

  ImportSeams m_seams;
};

TEST_F(KeyFileTest, IsTheTextOfItsValue) {
  answer(ERROR_SUCCESS, L"C:\\keys\\monitor.key");
  EXPECT_EQ(HostProperties::getInstance().keyFile(), L"C:\\keys\\monitor.key");
}

TEST_F(KeyFileTest, IsEmptyOnlyWhenThereIsNoSuchValue) {
  answer(ERROR_FILE_NOT_FOUND, L"");
  EXPECT_EQ(HostProperties::getInstance().keyFile(), L"");
}

TEST_F(KeyFileTest, IsNeverTakenForNoneWhenItCannotBeRead) {
  const std::wstring text = L"the registry value KeyFile in SOFTWARE\\Quillfern\\Corvane is no file name (";
  for (const LSTATUS status : {ERROR_UNSUPPORTED_TYPE, ERROR_MORE_DATA, ERROR_ACCESS_DENIED, ERROR_OUTOFMEMORY}) {
    answer(status, L"");
    EXPECT_EQ(failure(), text + std::to_wstring(status) + L")");
  }
  answer(ERROR_SUCCESS, L"");
  EXPECT_EQ(failure(), text + L"0)");
}

}  // namespace
