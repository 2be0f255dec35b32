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
    RegCreateKeyExW(HKEY_CURRENT_USER, kTestKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr);
  }
  ~LimitsTest() override {
    RegCloseKey(m_key);
    RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey);
  }

  void setNumber(const wchar_t* name, DWORD value) {
    RegSetValueExW(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  }
  void setText(const wchar_t* name, const std::wstring& value) {
    RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  }
  std::wstring errorText() {
    try {
      readLimits(HKEY_CURRENT_USER, kTestKey);
    } catch (const ConversionError& error) {
      EXPECT_EQ(error.code(), ExitCode::kConfiguration);
      return error.text();
    }
    return L"no error";
  }

  HKEY m_key = nullptr;
};

TEST_F(LimitsTest, MissingKeyGivesTheDefaults) {
  const Limits limits = readLimits(HKEY_CURRENT_USER, L"SOFTWARE\\Quillfern\\NoSuchKey");
  EXPECT_EQ(limits.timeSeconds, 300u);
  EXPECT_EQ(limits.memoryMegabytes, 1024u);
  EXPECT_EQ(limits.outputMegabytes, 1024u);
  EXPECT_EQ(limits.ghostscript, L"");
}

TEST_F(LimitsTest, EachValueReplacesItsDefault) {
  setNumber(L"TimeLimitSeconds", 2);
  setNumber(L"MemoryLimitMegabytes", 512);
  setNumber(L"OutputLimitMegabytes", 7);
  setText(L"GhostscriptPath", L"C:\\gs\\bin\\gswin64c.exe");
  const Limits limits = readLimits(HKEY_CURRENT_USER, kTestKey);
  EXPECT_EQ(limits.timeSeconds, 2u);
  EXPECT_EQ(limits.memoryMegabytes, 512u);
  EXPECT_EQ(limits.outputMegabytes, 7u);
  EXPECT_EQ(limits.ghostscript, L"C:\\gs\\bin\\gswin64c.exe");
}

TEST_F(LimitsTest, ZeroIsRefusedWithTheRangeAndTheDefault) {
  setNumber(L"TimeLimitSeconds", 0);
  EXPECT_EQ(errorText(),
            L"The registry value \"TimeLimitSeconds\" in \"SOFTWARE\\Quillfern\\ConverterTest\" must be a DWORD from 1 "
            L"to 86400; without it the limit is 300. Correct it or delete it.");
}

TEST_F(LimitsTest, TheLeastAndTheMostThatMayBeAskedForAreTaken) {
  setNumber(L"TimeLimitSeconds", 86400);
  setNumber(L"MemoryLimitMegabytes", 1048576);
  setNumber(L"OutputLimitMegabytes", 1048576);
  Limits limits = readLimits(HKEY_CURRENT_USER, kTestKey);
  EXPECT_EQ(limits.timeSeconds, 86400u);
  EXPECT_EQ(limits.memoryMegabytes, 1048576u);
  EXPECT_EQ(limits.outputMegabytes, 1048576u);
  setNumber(L"TimeLimitSeconds", 1);
  setNumber(L"MemoryLimitMegabytes", 128);
  setNumber(L"OutputLimitMegabytes", 1);
  limits = readLimits(HKEY_CURRENT_USER, kTestKey);
  EXPECT_EQ(limits.timeSeconds, 1u);
  EXPECT_EQ(limits.memoryMegabytes, 128u);
  EXPECT_EQ(limits.outputMegabytes, 1u);
}

TEST_F(LimitsTest, TooLargeIsRefused) {
  setNumber(L"OutputLimitMegabytes", 1048577);
  EXPECT_NE(errorText().find(L"\"OutputLimitMegabytes\""), std::wstring::npos);
}

TEST_F(LimitsTest, NumberWrittenAsTextIsRefused) {
  setText(L"MemoryLimitMegabytes", L"512");
  EXPECT_NE(errorText().find(L"must be a DWORD from 128 to 1048576; without it the limit is 1024"), std::wstring::npos);
}

TEST_F(LimitsTest, EmptyGhostscriptPathIsRefused) {
  setText(L"GhostscriptPath", L"");
  EXPECT_EQ(errorText(),
            L"The registry value \"GhostscriptPath\" in \"SOFTWARE\\Quillfern\\ConverterTest\" must be a string with "
            L"the full path of the Ghostscript program. Correct it or delete it.");
}

}  // namespace
}  // namespace mg::converter
