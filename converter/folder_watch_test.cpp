#include "converter/folder_watch.h"

#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>
#include <thread>

namespace mg::converter {
namespace {

constexpr ULONGLONG kPatience = 60000;  // milliseconds; only what is broken takes so long

TEST(FolderWatch, WhatIsNotSoByTheDeadlineIsNotWaitedForAnyLonger) {
  const TemporaryFolder folder;
  const FolderWatch watch(folder.directory());
  int looks = 0;
  EXPECT_FALSE(watch.waitUntil(GetTickCount64(), [&] { return ++looks == 3; }));
  EXPECT_EQ(looks, 1);
}

TEST(FolderWatch, WhatIsSoAlreadyIsSoAfterTheDeadlineToo) {
  const TemporaryFolder folder;
  EXPECT_TRUE(FolderWatch(folder.directory()).waitUntil(0, [] { return true; }));
}

TEST(FolderWatch, AFileThatComesLaterIsFound) {
  const TemporaryFolder folder;
  const FolderWatch watch(folder.directory());
  std::thread writer([&] { TemporaryFolder::write(folder.file(L"a"), "x"); });
  EXPECT_TRUE(
      watch.waitUntil(GetTickCount64() + kPatience, [&] { return TemporaryFolder::exists(folder.file(L"a")); }));
  writer.join();
}

TEST(FolderWatch, AFolderThatCannotBeWatchedIsLookedAtAgainAndAgain) {
  const TemporaryFolder folder;
  const FolderWatch watch(folder.file(L"none"));
  int looks = 0;
  EXPECT_TRUE(watch.waitUntil(GetTickCount64() + kPatience, [&] { return ++looks == 3; }));
}

}  // namespace
}  // namespace mg::converter
