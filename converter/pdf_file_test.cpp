#include "converter/pdf_file.h"

#include <windows.h>

#include <filesystem>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace mg::converter {
namespace {

// A PDF of 40 objects of four kilobytes, which stand in it from the last to the first.
class PdfFileTest : public testing::Test {
 protected:
  static constexpr unsigned long long kObjects = 40;

  PdfFileTest() {
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    m_path = fmt::format(L"{}pdf-file-{}.pdf", static_cast<const wchar_t*>(folder), GetCurrentProcessId());
    m_bytes = "%PDF-1.7\n";
    std::string table;
    for (unsigned long long number = kObjects; number > 0; --number) {
      table = fmt::format("{:010} 00000 n \n", m_bytes.size()) + table;
      m_bytes += text(number) + "\n";
    }
    const size_t at = m_bytes.size();
    m_bytes += fmt::format("xref\n0 {}\n0000000000 65535 f \n{}trailer\n<</Size {}>>\nstartxref\n{}\n%%EOF\n",
                           kObjects + 1, table, kObjects + 1, at);
    std::ofstream(std::filesystem::path(m_path), std::ios::binary) << m_bytes;
  }
  ~PdfFileTest() override { DeleteFileW(m_path.c_str()); }

  static std::string text(unsigned long long number) {
    return fmt::format("{} 0 obj\n({})\nendobj", number, std::string(4096, static_cast<char>('a' + number % 26)));
  }

  std::wstring m_path;
  std::string m_bytes;
};

TEST_F(PdfFileTest, ItsObjectsComeInTheOrderInWhichTheyStand) {
  std::vector<unsigned long long> expected;
  for (unsigned long long number = kObjects; number > 0; --number)
    expected.push_back(number);
  EXPECT_EQ(PdfFile(m_path).objects(), expected);
}

TEST_F(PdfFileTest, AnObjectIsThatOfItsNumberInWhateverOrderTheyAreRead) {
  PdfFile file(m_path);
  for (const unsigned long long number : file.objects())
    ASSERT_EQ(file.object(number), text(number));
  for (unsigned long long number = 1; number <= kObjects; ++number)
    ASSERT_EQ(file.object(number), text(number));
  for (unsigned long long number = 1; number <= kObjects; ++number)
    ASSERT_EQ(file.object(number * 17 % kObjects + 1), text(number * 17 % kObjects + 1));
}

TEST_F(PdfFileTest, BytesAreThoseOfTheirPlaceAndFewerAtItsEnd) {
  PdfFile file(m_path);
  for (const size_t size : {size_t{1}, size_t{1000}, size_t{65536}, size_t{65537}, m_bytes.size()}) {
    for (size_t at = 0; at < m_bytes.size() + 2; at += 6553)
      ASSERT_EQ(file.read(at, size), at < m_bytes.size() ? m_bytes.substr(at, size) : "") << at << ", " << size;
    ASSERT_EQ(file.read(m_bytes.size() - 1, size), "\n");
    ASSERT_EQ(file.read(m_bytes.size(), size), "");
  }
}

}  // namespace
}  // namespace mg::converter
