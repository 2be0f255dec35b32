#include "util/win_handle.h"

#include <gtest/gtest.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

std::vector<int> closed;

struct NumberTraits {
  using Type = int;
  static Type invalid() noexcept { return -1; }
  static void close(Type number) noexcept { closed.push_back(number); }
};
using Number = UniqueHandle<NumberTraits>;

bool isOpen(HANDLE handle) {
  DWORD flags = 0;
  return GetHandleInformation(handle, &flags) != FALSE;
}

class UniqueHandleTest : public testing::Test {
 protected:
  void SetUp() override { closed.clear(); }
};

}  // namespace

TEST_F(UniqueHandleTest, ClosesOnceAndNeverTheInvalidValue) {
  {
    const Number none;
    const Number zero(0);
    EXPECT_FALSE(none);
    EXPECT_TRUE(zero);
  }
  EXPECT_EQ(closed, std::vector<int>{0});
}

TEST(WinHandle, WhatWindowsAnswersWithoutAHandleIsNone) {
  EXPECT_FALSE(mg::ObjectHandle(nullptr));
  EXPECT_FALSE(mg::FileHandle(INVALID_HANDLE_VALUE));
  EXPECT_FALSE(mg::FindHandle(INVALID_HANDLE_VALUE));
  EXPECT_FALSE(mg::RegistryKey(nullptr));
  EXPECT_FALSE(mg::PrinterHandle(nullptr));
}

TEST_F(UniqueHandleTest, HandsItsHandleOverWhenMoved) {
  {
    Number first(1);
    Number second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
    Number third(3);
    third = std::move(second);
    EXPECT_EQ(closed, std::vector<int>{3});
    EXPECT_EQ(third.get(), 1);
  }
  EXPECT_EQ(closed, (std::vector<int>{3, 1}));
}

TEST_F(UniqueHandleTest, ClosesTheOldHandleOnResetAndReceiveAndNotOnRelease) {
  Number number(1);
  number.reset(2);
  *number.receive() = 3;
  EXPECT_EQ(closed, (std::vector<int>{1, 2}));
  EXPECT_EQ(number.release(), 3);
  EXPECT_FALSE(number);
  number.reset();
  EXPECT_EQ(closed, (std::vector<int>{1, 2}));
}

TEST_F(UniqueHandleTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<Number>);
  EXPECT_FALSE(std::is_copy_assignable_v<Number>);
}

TEST(ObjectHandle, ClosesAnEventAndKeepsTheLastError) {
  mg::ObjectHandle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  const HANDLE raw = event.get();
  ASSERT_TRUE(isOpen(raw));
  SetLastError(1234);
  event.reset();
  EXPECT_EQ(GetLastError(), 1234U);
  EXPECT_FALSE(isOpen(raw));
}

TEST(ObjectHandle, KeepsTheLastErrorEvenWhenClosingFails) {
  SetLastError(1234);
  mg::ObjectHandle(reinterpret_cast<HANDLE>(0x7fff0)).reset();
  EXPECT_EQ(GetLastError(), 1234U);
}

TEST(FileHandle, TakesMinusOneForNone) {
  EXPECT_FALSE(mg::FileHandle(INVALID_HANDLE_VALUE));
  EXPECT_FALSE(mg::FileHandle());
  mg::FileHandle file(CreateFileW(L"NUL", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(file);
  const HANDLE raw = file.get();
  file.reset();
  EXPECT_FALSE(isOpen(raw));
}

TEST(FindHandle, EndsASearch) {
  WIN32_FIND_DATAW data;
  mg::FindHandle search(FindFirstFileW(L"C:\\windows\\*", &data));
  ASSERT_TRUE(search);
  const HANDLE raw = search.get();
  search.reset();
  EXPECT_FALSE(FindNextFileW(raw, &data));
}

TEST(RegistryKey, ClosesAKeyThatItReceived) {
  mg::RegistryKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_READ, key.receive()), ERROR_SUCCESS);
  const HKEY raw = key.get();
  key.reset();
  EXPECT_NE(RegQueryInfoKeyW(raw, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr),
            ERROR_SUCCESS);
}

TEST(PrinterHandle, KeepsTheLastErrorWhenTheSpoolerRefusesToClose) {
  SetLastError(1234);
  mg::PrinterHandle(reinterpret_cast<HANDLE>(0x7fff0)).reset();
  EXPECT_EQ(GetLastError(), 1234U);
}

TEST(PrinterAsObjectHandle, IsClosedWithCloseHandle) {
  mg::PrinterAsObjectHandle handle(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  const HANDLE raw = handle.get();
  handle.reset();
  EXPECT_FALSE(isOpen(raw));
}
