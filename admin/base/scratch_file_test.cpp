#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "tests/support/import_seam.h"

#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", GetTempPathW, 0)

namespace admin {
namespace {

TEST(ScratchFile, HasNoFolderWhereWindowsNamesNone) {
  ImportSeams seams;
  GetTempPathWSeam.replacement = [](DWORD, LPWSTR) -> DWORD {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  };
  try {
    ScratchFile::folder();
    ADD_FAILURE() << "there is one";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.what(), "the folder for temporary files is unknown: " + errorWords(ERROR_ACCESS_DENIED));
  }
}

}  // namespace
}  // namespace admin
