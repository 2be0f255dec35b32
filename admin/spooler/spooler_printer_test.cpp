#include "admin/spooler/spooler_printer.h"

#include "admin/base/failure.h"
#include "corvane/base/text.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

TEST(PrintedDocument, ThatIsAFolderIsRefusedByTheFoldersName) {
  const TemporaryFolder folder;
  RawDocument document;
  document.printer = L"Laser";
  document.file = folder.file(L".");
  document.title = L"A letter";
  try {
    printDocument(document, nullptr);
    ADD_FAILURE() << "it was printed";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kUsage);
    EXPECT_EQ(failure.what(), "\"" + corvane::toUtf8(document.file) + "\" is a folder");
  }
}

}  // namespace
}  // namespace admin
