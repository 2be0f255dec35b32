#include "converter/completeness.h"
#include "converter/conversion_error.h"

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace mg::converter {
namespace {

constexpr char kStream[] = "<</Length 28>>\nstream\n/Type /Pages /Count 999 /Root\nendstream";

// A PDF of three objects; unless told otherwise, the third is a stream that holds the words of a page tree.
std::string pdf(int pages, const std::string& third = kStream) {
  const std::vector<std::string> objects = {
      "1 0 obj\n<</Type/Catalog/Pages 2 0 R>>\nendobj\n",
      "2 0 obj\n<</Type/Pages/Kids[3 0 R]/Count " + std::to_string(pages) + ">>\nendobj\n",
      "3 0 obj\n" + third + "\nendobj\n",
  };
  std::string file = "%PDF-1.7\n";
  std::string table = "xref\n0 4\n0000000000 65535 f \n";
  for (const std::string& object : objects) {
    char entry[21];
    std::snprintf(entry, sizeof entry, "%010d 00000 n \n", static_cast<int>(file.size()));
    table += entry;
    file += object;
  }
  const std::string start = std::to_string(file.size());
  return file + table + "trailer\n<</Size 4/Root 1 0 R>>\nstartxref\n" + start + "\n%%EOF\n";
}

class PdfCheck : public testing::Test {
 protected:
  PdfCheck() {
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    m_path = std::wstring(folder) + L"pdf-check-" + std::to_wstring(GetCurrentProcessId()) + L".pdf";
  }
  ~PdfCheck() override { DeleteFileW(m_path.c_str()); }

  PdfPages pages(const std::string& bytes) {
    std::ofstream(std::filesystem::path(m_path), std::ios::binary) << bytes;
    return countPdfPages(m_path);
  }
  int count(const std::string& bytes) { return pages(bytes).count; }
  std::wstring errorFor(const std::string& bytes) {
    try {
      count(bytes);
    } catch (const ConversionError& error) {
      EXPECT_EQ(error.code(), ExitCode::kIncomplete);
      return error.text();
    }
    return L"no error";
  }

  std::wstring m_path;
};

TEST_F(PdfCheck, PagesAreCountedFromThePageTreeAndNotFromTextInsideThem) {
  EXPECT_EQ(count(pdf(0)), 0);
  EXPECT_EQ(count(pdf(12)), 12);
}

TEST_F(PdfCheck, APageThatNoTreeCountsIsFoundWhateverTheOrderOfItsKeys) {
  for (const char* page : {"<</Type/Page/Parent 2 0 R>>", "<</Parent 2 0 R/Rotate 0/Type/Page>>",
                           "<</Resources<</Font<</R7 1 0 R>>>>/Type /Page>>"})
    EXPECT_EQ(pages(pdf(0, page)).unshown, 1) << page;
  for (const char* other : {"<</Type/Pages>>", "<</Kind/Page>>", "<</First<</Type/Page>>>>", "[/Type/Page]", kStream})
    EXPECT_EQ(pages(pdf(0, other)).unshown, 0) << other;
  EXPECT_EQ(pages(pdf(1, "<</Type/Page>>")).unshown, 0) << "the tree counts it";
}

TEST_F(PdfCheck, FileWithoutTheHeadIsRefused) {
  EXPECT_EQ(errorFor("x" + pdf(1)),
            L"Ghostscript left an incomplete PDF: it does not begin with \"%PDF-\". Check the free space of the "
            L"disk and print again.");
  EXPECT_NE(errorFor("").find(L"\"%PDF-\""), std::wstring::npos);
}

TEST_F(PdfCheck, FileCutAnywhereIsRefused) {
  const std::string whole = pdf(2);
  for (size_t size = 0; size + 1 < whole.size(); ++size) {
    EXPECT_NE(errorFor(whole.substr(0, size)), L"no error") << size;
  }
}

TEST_F(PdfCheck, FileWithATailOfAnotherFileIsRefused) {
  std::string file = pdf(1);
  file.replace(file.find("2 0 obj"), 7, "9 0 obj");
  EXPECT_NE(errorFor(file).find(L"an object is not where it should be"), std::wstring::npos);
}

// From its number to its end.
TEST_F(PdfCheck, AnObjectMayHave16MegabytesAndNotOneByteMore) {
  const size_t around = std::string("3 0 obj\n<<>>\nendobj").size();
  const std::string object = "<<" + std::string((16u << 20) - around, ' ') + ">>";
  EXPECT_EQ(count(pdf(2, object)), 2);
  EXPECT_NE(errorFor(pdf(2, object + " ")).find(L"an object is truncated"), std::wstring::npos);
}

TEST_F(PdfCheck, MissingFileIsRefused) {
  try {
    countPdfPages(m_path + L"none");
    FAIL() << "accepted";
  } catch (const ConversionError& error) {
    EXPECT_NE(error.text().find(L"there is no file"), std::wstring::npos);
  }
}

}  // namespace
}  // namespace mg::converter
