#include "converter/conversion_error.h"
#include "converter/convert.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

TEST(JobPaths, PdfStandsBesideThePostScriptUnderTheSameBaseName) {
  const JobPaths paths = pathsForInput(L"C:\\temp\\Laser-2 - Job #17-90210.ps");
  EXPECT_EQ(paths.input, L"C:\\temp\\Laser-2 - Job #17-90210.ps");
  EXPECT_EQ(paths.output, L"C:\\temp\\Laser-2 - Job #17-90210.pdf");
}

TEST(JobPaths, SuffixMayBeInCapitals) {
  EXPECT_EQ(pathsForInput(L"C:\\A.PS").output, L"C:\\A.pdf");
}

TEST(JobPaths, OnlyTheLastSuffixIsReplaced) {
  EXPECT_EQ(pathsForInput(L"C:\\a.ps.ps").output, L"C:\\a.ps.pdf");
}

TEST(JobPaths, OtherNamesAreRefusedWithTheUsage) {
  for (const wchar_t* name : {L"", L".ps", L"C:\\a.pdf", L"C:\\a"}) {
    try {
      pathsForInput(name);
      FAIL() << "accepted";
    } catch (const ConversionError& error) {
      EXPECT_EQ(error.code(), ExitCode::kUsage);
      EXPECT_EQ(error.text(), kUsageText);
    }
  }
}

}  // namespace
}  // namespace mg::converter
