// The documents of tests/documents through the converter: contained, ended within the limit, and either the right pages
// or a failure with its reason.
#include "converter/completeness.h"
#include "tests/support/converter/convert_fixture.h"

#include <cstdlib>
#include <iterator>
#include <vector>

namespace mg::converter {
namespace {

namespace fs = std::filesystem;

// Kinds of actions that no PDF may carry.
constexpr const char* kActions[] = {"/Launch", "/JavaScript", "/OpenAction", "/EmbeddedFile", "/URI(file"};

class DocumentsTest : public ConvertTest {
 protected:
  DocumentsTest() {
    m_limits.timeSeconds = 5;
    m_limits.memoryMegabytes = 384;
  }

  // Those whose names begin with `kind`: all of them in a long test, otherwise every tenth.
  static std::vector<fs::path> documents(const std::wstring& kind) {
    std::set<fs::path> found;
    for (const auto& entry : fs::directory_iterator(fs::path(MG_SOURCE_DIR) / "tests" / "documents")) {
      const std::wstring name = entry.path().filename().wstring();
      if (name.compare(0, kind.size(), kind) == 0 && entry.path().extension() == L".ps") found.insert(entry.path());
    }
    EXPECT_GE(found.size(), 60u);
    std::vector<fs::path> chosen;
    const size_t step = std::getenv("MG_LONG_TESTS") != nullptr ? 1 : 10;
    size_t number = 0;
    for (const fs::path& path : found) {
      if (number++ % step == 0) chosen.push_back(path);
    }
    return chosen;
  }
  static std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // "pages 2", "refused", or "pages 2 or refused".
  static std::string expectation(const std::string& document) {
    const std::string sign = "% expect: ";
    const size_t at = document.find(sign) + sign.size();
    return document.substr(at, document.find_first_of("\r\n", at) - at);
  }
  // The same words for what became of it.
  std::string outcome(const std::string& document) {
    const JobPaths paths = write(L"job", document);
    std::string result;
    try {
      result = "pages " + std::to_string(convert(paths, m_limits));
      EXPECT_EQ("pages " + std::to_string(countPdfPages(paths.output).count), result);
      const std::string pdf = read(paths.output);
      for (const char* action : kActions)
        EXPECT_EQ(pdf.find(action), std::string::npos) << action;
      EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
    } catch (const ConversionError& error) {
      result = "refused";
      EXPECT_GT(error.text().size(), 20u);
      EXPECT_EQ(error.text().find_first_of(L"\r\n"), std::wstring::npos);
      EXPECT_EQ(names(), std::set<std::wstring>{L"job.ps"}) << error.what();
      m_reason = error.what();
    }
    DeleteFileW(paths.output.c_str());
    return result;
  }
  void runAll(const std::wstring& kind) {
    for (const fs::path& path : documents(kind)) {
      SCOPED_TRACE(path.filename().string());
      const std::string document = read(path);
      const std::string expected = expectation(document);
      m_reason.clear();
      const std::string result = outcome(document);
      const bool isRight = result == expected || expected == result + " or refused" ||
                           (result == "refused" && expected.find(" or refused") != std::string::npos);
      EXPECT_TRUE(isRight) << "expected " << expected << ", came: " << result << " " << m_reason;
    }
  }

  std::string m_reason;
};

TEST_F(DocumentsTest, HonestDocumentsOfEveryOriginBecomePdfsWithAllTheirPages) {
  runAll(L"honest-");
}

TEST_F(DocumentsTest, HostileDocumentsAreContainedAndEndWithAReason) {
  runAll(L"hostile-");
}

}  // namespace
}  // namespace mg::converter
