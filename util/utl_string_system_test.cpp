#include "tests/support/util/code_of.h"
#include "util/utl_exception.h"
#include "util/utl_string.h"

#include <windows.h>

#include <climits>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <string>

// Found by name in this program, which makes it a module with a string loader of its own.
extern "C" __declspec(dllexport) int WINAPI MGLoadStringW(HINSTANCE, UINT identifier, LPWSTR buffer, int size) {
  // One that tells how long the text is and not how much of it was written.
  if (identifier == 44) return size;
  if (identifier != 42) return 0;
  std::wcsncpy(buffer, L"from the module's own loader", static_cast<std::size_t>(size) - 1);
  buffer[size - 1] = L'\0';
  return static_cast<int>(std::wcslen(buffer));
}

namespace {

using tests::codeOf;

// Some string resource of user32.dll that has a few characters.
UINT someResource(std::wstring& text) {
  wchar_t buffer[200];
  for (UINT identifier = 0; identifier < 10000; ++identifier) {
    if (LoadStringW(GetModuleHandleW(L"user32.dll"), identifier, buffer, 200) > 3) {
      text = buffer;
      return identifier;
    }
  }
  ADD_FAILURE() << "user32.dll has no strings";
  return 0;
}

}  // namespace

TEST(UtlStringResource, IsLoadedFromAModuleByName) {
  std::wstring expected;
  const UINT identifier = someResource(expected);
  UTL_String text;
  text.loadResourceWide(L"user32.dll", identifier, 200);
  EXPECT_EQ(text.wide(), expected);
  EXPECT_EQ(text.length(), expected.size());
  UTL_String narrow;
  narrow.loadResourceNarrow("user32.dll", identifier, 200);
  EXPECT_STREQ(narrow.narrow(), UTL_String(expected.c_str()).narrow());
}

TEST(UtlStringResource, IsCutToTheSizeOfItsBuffer) {
  std::wstring expected;
  const UINT identifier = someResource(expected);
  UTL_String text;
  text.loadResourceWide(L"user32.dll", identifier, 3);
  EXPECT_EQ(text.wide(), expected.substr(0, 2));
}

TEST(UtlStringResource, ComesFromTheModulesOwnLoaderWhenItHasOne) {
  UTL_String text;
  text.loadResourceWide(nullptr, 42, 100);
  EXPECT_STREQ(text.wide(), L"from the module's own loader");
  text.loadResourceWide(nullptr, 42, 5);
  EXPECT_STREQ(text.wide(), L"from");
}

TEST(UtlStringResource, ThrowsFailureAndKeepsTheTextWhenThereIsNone) {
  UTL_String text(L"before");
  EXPECT_EQ(codeOf([&] { text.loadResourceWide(L"no-such-module.dll", 1, 100); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceNarrow("no-such-module.dll", 1, 100); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceWide(nullptr, 43, 100); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceNarrow(nullptr, 43, 100); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceWide(nullptr, 42, 0); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceNarrow(nullptr, 42, 0); }), 1);
  EXPECT_STREQ(text.wide(), L"before");
}

TEST(UtlStringResource, ThrowsFailureForMoreThanItsBufferOrTheSystemCanHold) {
  UTL_String text(L"before");
  EXPECT_EQ(codeOf([&] { text.loadResourceWide(nullptr, 44, 100); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceWide(nullptr, 42, std::size_t{INT_MAX} + 1); }), 1);
  EXPECT_EQ(codeOf([&] { text.loadResourceNarrow(nullptr, 42, std::size_t{INT_MAX} + 1); }), 1);
  EXPECT_STREQ(text.wide(), L"before");
}

TEST(UtlStringEnvironment, ReplacesVariablesInEitherForm) {
  SetEnvironmentVariableW(L"MG_TEST_NAME", L"a longer value than its name");
  UTL_String wide(L"<%MG_TEST_NAME%>");
  wide.expandEnvironment();
  EXPECT_STREQ(wide.wide(), L"<a longer value than its name>");
  EXPECT_EQ(wide.length(), 30U);
  UTL_String narrow = UTL_String::fromNarrow("<%MG_TEST_NAME%>%MG_TEST_MISSING%");
  narrow.expandEnvironment();
  EXPECT_STREQ(narrow.narrow(), "<a longer value than its name>%MG_TEST_MISSING%");
  UTL_String empty;
  empty.expandEnvironment();
  EXPECT_TRUE(empty.isEmpty());
}

TEST(UtlStringPath, GivesTheShortFormOfAPathThatExists) {
  wchar_t expected[MAX_PATH];
  ASSERT_NE(GetShortPathNameW(L"C:\\Program Files", expected, MAX_PATH), 0U);
  UTL_String wide(L"C:\\Program Files");
  wide.shortenPath();
  EXPECT_STREQ(wide.wide(), expected);
  EXPECT_EQ(wide.length(), std::wcslen(expected));
  UTL_String narrow = UTL_String::fromNarrow("C:\\Program Files");
  narrow.shortenPath();
  EXPECT_STREQ(narrow.wide(), expected);
}

TEST(UtlStringPath, ThrowsFailureAndKeepsAPathThatDoesNotExist) {
  UTL_String text(L"C:\\no such folder\\file");
  EXPECT_EQ(codeOf([&] { text.shortenPath(); }), 1);
  EXPECT_STREQ(text.wide(), L"C:\\no such folder\\file");
  UTL_String empty;
  empty.shortenPath();
  EXPECT_TRUE(empty.isEmpty());
}

// Wine starts a process for the desktop with the first window of a prefix, waits some seconds for it, and without it
// makes no window: on a busy machine it takes more than one attempt.
HWND makeWindow() {
  for (const ULONGLONG end = GetTickCount64() + 60000; GetTickCount64() < end; Sleep(100)) {
    const HWND window =
        CreateWindowExW(0, L"STATIC", L"a window", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    if (window != nullptr) return window;
  }
  return nullptr;
}

TEST(UtlStringWindow, ReadsTheTextOfAWindowInEitherForm) {
  const HWND window = makeWindow();
  ASSERT_NE(window, nullptr) << GetLastError();
  UTL_String text(L"before");
  text.readWindowWide(window);
  EXPECT_STREQ(text.wide(), L"a window");
  text.readWindowNarrow(window);
  EXPECT_STREQ(text.narrow(), "a window");
  EXPECT_EQ(text.length(), 8U);
  SetWindowTextW(window, L"");
  text.readWindowWide(window);
  EXPECT_TRUE(text.isEmpty());
  DestroyWindow(window);
  text = L"before";
  text.readWindowNarrow(window);
  EXPECT_TRUE(text.isEmpty()) << "a window that is gone has no text";
}
