#include "admin/spooler/monitor_module.h"
#include "tests/support/temporary_folder.h"

#include <gmock/gmock.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kLog[] =
    "2026-01-01 1.1 #1 failure: first\r\n"
    "2026-01-01 1.1 begin MGOpenPort\r\n"
    "2026-01-01 1.1 #2 exception 3012: second\r\n"
    "2026-01-01 1.1 connection nobody answers\r\n";

TEST(LogTail, KeepsTheLastLinesThatTellOfAFailure) {
  EXPECT_THAT(failuresInText(kLog, 10),
              ElementsAre("2026-01-01 1.1 #1 failure: first", "2026-01-01 1.1 #2 exception 3012: second",
                          "2026-01-01 1.1 connection nobody answers"));
  EXPECT_THAT(failuresInText(kLog, 1), ElementsAre("2026-01-01 1.1 connection nobody answers"));
}

TEST(LogTail, OfALongFileIsReadFromItsEnd) {
  const TemporaryFolder folder;
  const std::wstring path = folder.file(L"log");
  TemporaryFolder::write(path, std::string(200000, 'x') + "\r\n" + kLog);
  EXPECT_THAT(failuresInLog(path, 1), ElementsAre("2026-01-01 1.1 connection nobody answers"));
}

TEST(LogTail, OfAFileThatIsNotThereIsEmpty) {
  EXPECT_THAT(failuresInLog(L"", 1), IsEmpty());
  EXPECT_THAT(failuresInLog(L"C:\\no\\such\\file", 1), IsEmpty());
}

}  // namespace
}  // namespace admin
