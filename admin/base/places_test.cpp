#include "admin/base/places.h"

#include "admin/base/failure.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

std::string refusalOf(const std::wstring& root) {
  try {
    Places::ofThisMachine(root);
    return "";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kUsage);
    return failure.what();
  }
}

TEST(Places, EverythingStandsBelowTheRootTheSystemFolderAndTheVendorsKey) {
  const Places places = Places::ofThisMachine(L"C:\\print\\");
  EXPECT_EQ(places.root, L"C:\\print");
  EXPECT_EQ(places.module(), places.systemFolder + L"\\MgPrintMon.dll");
  EXPECT_EQ(places.converter(), L"C:\\print\\Programs\\ps2pdf.exe");
  EXPECT_EQ(places.logFile(), L"C:\\print\\Log\\MgPrintMon.log");
  EXPECT_EQ(places.frameworkKey(), L"SOFTWARE\\Quillfern\\Corvane");
  EXPECT_EQ(places.portsKey(), L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports");
  EXPECT_EQ(places.recordKey(), L"SOFTWARE\\Quillfern\\Marrowgate\\Installation");
}

TEST(Places, ARootHasAtMost180CharactersAndIsNoWholeDrive) {
  const std::wstring longest = L"C:\\" + std::wstring(177, L'a');
  EXPECT_EQ(refusalOf(longest), "");
  EXPECT_EQ(refusalOf(longest + L"a"), "\"C:\\" + std::string(178, 'a') + "\" is too long for an installation folder");
  EXPECT_EQ(refusalOf(L"C:\\"), "\"C:\\\" is a whole drive");
}

}  // namespace
}  // namespace admin
