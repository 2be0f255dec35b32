#include "admin/base/private_folder.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "tests/support/admin/access_lists.h"
#include "tests/support/import_seam.h"
#include "tests/support/temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr wchar_t kService[] = L"S-1-5-80-1-2-3-4-5";
// Everything for the system and the administrators, reading, writing and deleting for the service; for all that comes
// into it as well, and nothing from above.
constexpr wchar_t kPrivate[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;S-1-5-80-1-2-3-4-5)";

class PrivateFolderTest : public ::testing::Test {
 protected:
  ImportSeams seams;
  TemporaryFolder folder;
  const std::wstring path = folder.file(L"Keys");
};

TEST_F(PrivateFolderTest, IsMadeForAdministratorsAndTheServiceAloneFromItsFirstMoment) {
  std::vector<std::wstring> lists;
  recordAccessLists(lists);
  createPrivateFolder(path, kService);
  EXPECT_THAT(lists, ElementsAre(kPrivate));
  EXPECT_TRUE(folderExists(path));
  EXPECT_EQ(strangersIn(path, kService), "");
}

TEST_F(PrivateFolderTest, OneThatIsThereGetsTheSameRights) {
  CreateDirectoryW(path.c_str(), nullptr);
  std::vector<std::wstring> lists;
  recordAccessLists(lists);
  makeFolderPrivate(path, kService);
  EXPECT_THAT(lists, ElementsAre(kPrivate));
}

// Whoever owns a folder gives himself what rights he likes.
TEST_F(PrivateFolderTest, OneThatSomebodyElseOwnsIsRefused) {
  CreateDirectoryW(path.c_str(), nullptr);
  showAccessList(L"O:BUD:P(A;OICI;FA;;;SY)");
  std::vector<std::wstring> lists;
  recordAccessLists(lists);
  try {
    makeFolderPrivate(path, kService);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kFailed);
    EXPECT_THAT(failure.what(), HasSubstr("Keys\" is there already and belongs to "));
    EXPECT_THAT(failure.what(), HasSubstr("Users, who can change its rights at any time"));
    EXPECT_EQ(failure.remedy(), "Look what is in it, remove it, and do this again.");
  }
  EXPECT_THAT(lists, IsEmpty());
  EXPECT_THAT(strangersIn(path, kService), HasSubstr("Users (who owns it)"));
}

TEST_F(PrivateFolderTest, StrangersAreWhoeverElseHasAnyRight) {
  showAccessList(std::wstring(L"O:BA") + kPrivate);
  EXPECT_EQ(strangersIn(path, kService), "");
  showAccessList(L"O:SYD:P(A;OICI;FA;;;SY)(A;;FR;;;WD)(D;;FA;;;AN)(A;;FR;;;BU)");
  EXPECT_THAT(strangersIn(path, kService), HasSubstr("Users"));
  EXPECT_THAT(strangersIn(path, kService), HasSubstr(", "));
  showAccessList(L"O:BAD:P(A;;FR;;;S-1-5-80-9-9-9-9-9)");
  EXPECT_EQ(strangersIn(path, kService), "S-1-5-80-9-9-9-9-9") << "another service";
  showAccessList(L"O:BAD:P(A;;FA;;;OW)(A;OICIIO;FA;;;CO)(D;;FA;;;WD)");
  EXPECT_EQ(strangersIn(path, kService), "") << "the owner is an administrator, and a refusal gives nothing";
  showAccessList(L"O:BA");
  EXPECT_EQ(strangersIn(path, kService), "everybody") << "a folder without a list is open to all";
}

TEST_F(PrivateFolderTest, WhoseRightsCannotBeReadOrSetIsAFailure) {
  refuseFolder();
  EXPECT_THROW(createPrivateFolder(path, kService), SystemFailure);
  CreateDirectoryW(path.c_str(), nullptr);
  refuseReadingAccessList();
  EXPECT_THROW(strangersIn(path, kService), SystemFailure);
  refuseSettingAccessList();
  EXPECT_THROW(makeFolderPrivate(path, kService), SystemFailure);
}

}  // namespace
}  // namespace admin
