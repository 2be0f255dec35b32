#include "converter/limits.h"

#include "converter/conversion_error.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

constexpr wchar_t kTestKey[] = L"SOFTWARE\\Quillfern\\ConverterTest";

class LimitsTest : public testing::Test {
 protected:
  LimitsTest() {
    RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey);
    RegCreateKeyExW(HKEY_CURRENT_USER, kTestKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_, nullptr);
  }
  ~LimitsTest() override {
    RegCloseKey(key_);
    RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey);
  }

  void SetNumber(const wchar_t* name, DWORD value) {
    RegSetValueExW(key_, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  }
  void SetText(const wchar_t* name, const std::wstring& value) {
    RegSetValueExW(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  }
  std::wstring ErrorText() {
    try {
      ReadLimits(HKEY_CURRENT_USER, kTestKey);
    } catch (const ConversionError& error) {
      EXPECT_EQ(error.code(), ExitCode::kConfiguration);
      return error.text();
    }
    return L"no error";
  }

  HKEY key_ = nullptr;
};

TEST_F(LimitsTest, MissingKeyGivesTheDefaults) {
  const Limits limits = ReadLimits(HKEY_CURRENT_USER, L"SOFTWARE\\Quillfern\\NoSuchKey");
  EXPECT_EQ(limits.time_seconds, 300u);
  EXPECT_EQ(limits.memory_megabytes, 1024u);
  EXPECT_EQ(limits.output_megabytes, 1024u);
  EXPECT_EQ(limits.ghostscript, L"");
}

TEST_F(LimitsTest, EachValueReplacesItsDefault) {
  SetNumber(L"TimeLimitSeconds", 2);
  SetNumber(L"MemoryLimitMegabytes", 512);
  SetNumber(L"OutputLimitMegabytes", 7);
  SetText(L"GhostscriptPath", L"C:\\gs\\bin\\gswin64c.exe");
  const Limits limits = ReadLimits(HKEY_CURRENT_USER, kTestKey);
  EXPECT_EQ(limits.time_seconds, 2u);
  EXPECT_EQ(limits.memory_megabytes, 512u);
  EXPECT_EQ(limits.output_megabytes, 7u);
  EXPECT_EQ(limits.ghostscript, L"C:\\gs\\bin\\gswin64c.exe");
}

TEST_F(LimitsTest, ZeroIsRefusedWithTheRangeAndTheDefault) {
  SetNumber(L"TimeLimitSeconds", 0);
  EXPECT_EQ(ErrorText(),
            L"The registry value \"TimeLimitSeconds\" in \"SOFTWARE\\Quillfern\\ConverterTest\" must be a DWORD from 1 "
            L"to 86400; without it the limit is 300. Correct it or delete it.");
}

TEST_F(LimitsTest, TooLargeIsRefused) {
  SetNumber(L"OutputLimitMegabytes", 1048577);
  EXPECT_NE(ErrorText().find(L"\"OutputLimitMegabytes\""), std::wstring::npos);
}

TEST_F(LimitsTest, NumberWrittenAsTextIsRefused) {
  SetText(L"MemoryLimitMegabytes", L"512");
  EXPECT_NE(ErrorText().find(L"must be a DWORD from 128 to 1048576; without it the limit is 1024"), std::wstring::npos);
}

TEST_F(LimitsTest, EmptyGhostscriptPathIsRefused) {
  SetText(L"GhostscriptPath", L"");
  EXPECT_EQ(ErrorText(),
            L"The registry value \"GhostscriptPath\" in \"SOFTWARE\\Quillfern\\ConverterTest\" must be a string with "
            L"the full path of the Ghostscript program. Correct it or delete it.");
}

}  // namespace
}  // namespace mg::converter
