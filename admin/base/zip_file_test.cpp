#include "admin/base/zip_file.h"

#include "admin/base/failure.h"
#include "corvane/base/text.h"
#include "tests/support/admin/installation_fixture.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

class ZipFileTest : public testing::Test {
 protected:
  static std::string failureOf(const std::function<void()>& call) {
    try {
      call();
      return "";
    } catch (const Failure& failure) {
      return std::string(failure.what()) + " / " + failure.remedy();
    }
  }

  TemporaryFolder folder;
  const std::wstring path = folder.file(L"a.zip");
};

TEST_F(ZipFileTest, HoldsItsFilesAsTheyAreWithTheirChecksumsAndTheirPlaces) {
  {
    ZipFile archive(path);
    archive.add("a.txt", "123456789");
    archive.add("logs/b.txt", "");
    archive.finish();
  }
  const std::string bytes = TemporaryFolder::read(path);
  EXPECT_EQ(bytes.substr(0, 10), std::string("PK\x03\x04\x14\x00\x00\x08\x00\x00", 10));
  // The check value of CRC-32, and the size twice.
  EXPECT_EQ(bytes.substr(14, 12), std::string("\x26\x39\xF4\xCB\x09\x00\x00\x00\x09\x00\x00\x00", 12));
  EXPECT_EQ(bytes.substr(26, 4), std::string("\x05\x00\x00\x00", 4));
  EXPECT_EQ(bytes.substr(30, 14), "a.txt123456789");
  EXPECT_EQ(bytes.substr(44, 4), "PK\x03\x04");
  EXPECT_EQ(bytes.substr(84, 4), "PK\x01\x02");
  const std::string end = bytes.substr(bytes.size() - 22);
  EXPECT_EQ(end.substr(0, 12), std::string("PK\x05\x06\x00\x00\x00\x00\x02\x00\x02\x00", 12));
  EXPECT_EQ(end.substr(16, 6), std::string("\x54\x00\x00\x00\x00\x00", 6));
}

TEST_F(ZipFileTest, OneThatIsNotFinishedIsRemoved) {
  {
    ZipFile archive(path);
    archive.add("a.txt", "a");
    EXPECT_TRUE(TemporaryFolder::exists(path));
  }
  EXPECT_FALSE(TemporaryFolder::exists(path));
}

TEST_F(ZipFileTest, OneThatIsThereStaysAsItIs) {
  TemporaryFolder::write(path, "mine");
  EXPECT_EQ(failureOf([this] { ZipFile archive(path); }),
            "\"" + corvane::toUtf8(path) + "\" is there already / Name a file that is not there yet.");
  EXPECT_EQ(TemporaryFolder::read(path), "mine");
}

TEST_F(ZipFileTest, WithoutItsFolderThereIsNoneAndThatIsSaid) {
  const std::string failure = failureOf([this] { ZipFile archive(folder.file(L"no\\a.zip")); });
  EXPECT_NE(failure.find("a.zip\" cannot be made: "), std::string::npos) << failure;
  EXPECT_NE(failure.find(" / Make its folder, or name a file in another one."), std::string::npos) << failure;
}

using FullDiskTest = InstallationTest;

TEST_F(FullDiskTest, TakesNoArchiveAndKeepsNoPartOfOne) {
  const std::wstring path = folder.file(L"a.zip");
  fillDisk();
  try {
    ZipFile archive(path);
    archive.add("a.txt", "some text");
    ADD_FAILURE() << "it is written";
  } catch (const SystemFailure& failure) {
    EXPECT_EQ(failure.error(), static_cast<DWORD>(ERROR_DISK_FULL));
    EXPECT_EQ(failure.remedy(), "The disk is full: make room on it and do this again.");
  }
  EXPECT_FALSE(TemporaryFolder::exists(path));
}

}  // namespace
}  // namespace admin
