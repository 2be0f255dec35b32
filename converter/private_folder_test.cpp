#include "converter/private_folder.h"

#include "converter/conversion_error.h"
#include "tests/support/temporary_folder.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <optional>

namespace mg::converter {
namespace {

class PrivateFolderTest : public testing::Test {
 protected:
  bool exists(const std::wstring& path) const { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

  TemporaryFolder m_parent;
  std::optional<PrivateFolder> m_folder{std::in_place, m_parent.file(L"job.ps")};
};

TEST_F(PrivateFolderTest, StandsBesideTheFileAndIsGoneWithAllThatIsInIt) {
  const std::wstring path = m_folder->path();
  EXPECT_EQ(path.find(m_parent.file(L"ps2pdf-")), 0u);
  TemporaryFolder::write(m_folder->output(), "x");
  TemporaryFolder::write(m_folder->temporary() + L"\\scratch", "x");
  m_folder.reset();
  EXPECT_FALSE(exists(path));
  EXPECT_TRUE(m_parent.isEmpty());
}

TEST_F(PrivateFolderTest, TheNextRunLeavesItAloneAndRemovesWhatAKilledOneLeft) {
  const std::wstring left = m_parent.file(L"ps2pdf-0123456789abcdef");
  CreateDirectoryW(left.c_str(), nullptr);
  TemporaryFolder::write(left + kInUseFile, "");
  const PrivateFolder next(m_parent.file(L"other.ps"));
  EXPECT_TRUE(exists(m_folder->temporary()));
  EXPECT_TRUE(exists(next.temporary()));
  EXPECT_FALSE(exists(left));
}

TEST_F(PrivateFolderTest, TheSumOfAllFilesCounts) {
  EXPECT_FALSE(m_folder->holdsMoreThan(24576));
  TemporaryFolder::write(m_folder->output(), std::string(10000, 'x'));
  TemporaryFolder::write(m_folder->temporary() + L"\\a", std::string(10000, 'x'));
  // The file by which the folder is known to be in use counts like any other.
  EXPECT_FALSE(m_folder->holdsMoreThan(24096));
  EXPECT_TRUE(m_folder->holdsMoreThan(24095));
}

TEST_F(PrivateFolderTest, AnEmptyFileCountsAsFourKilobytes) {
  for (int i = 0; i < 10; ++i)
    TemporaryFolder::write(m_folder->temporary() + L"\\" + std::to_wstring(i), "");
  EXPECT_FALSE(m_folder->holdsMoreThan(11 * 4096));
  EXPECT_TRUE(m_folder->holdsMoreThan(11 * 4096 - 1));
}

TEST_F(PrivateFolderTest, AFolderThatCannotBeMadeIsNamed) {
  try {
    const PrivateFolder folder(m_parent.file(L"none\\job.ps"));
    FAIL() << "made";
  } catch (const ConversionError& error) {
    EXPECT_EQ(error.code(), ExitCode::kFileSystem);
    EXPECT_NE(error.text().find(L"cannot be made: "), std::wstring::npos);
    EXPECT_NE(error.text().find(L"The folder of the PostScript file must be writable."), std::wstring::npos);
  }
}

}  // namespace
}  // namespace mg::converter
