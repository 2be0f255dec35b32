#include "client/sinks/copies_in_data.h"

#include <gtest/gtest.h>
#include <string>

namespace printclient {
namespace {

const std::string kExit = "\x1b%-12345X";
const std::string kPostScript = "%!PS-Adobe-3.0\n%%EndComments\n%%BeginSetup\n";
const std::string kPage = "%%EndSetup\n%%Page: 1 1\nshowpage\n";

TEST(CopiesInData, PostScriptSaysThemInFrontOfItsFirstPage) {
  for (const char* statement :
       {"<< /NumCopies 3 >> setpagedevice\n", "<</NumCopies 3>> setpagedevice\n", "/#copies 3 def\n",
        "userdict /#copies 3 put\n", "%%BeginNonPPDFeature: NumCopies 3\n%%EndNonPPDFeature\n",
        "/NumCopies known { /NumCopies exch def } if /NumCopies 2 def /NumCopies 3 def /NumCopies get\n"})
    EXPECT_EQ(copiesInData(kPostScript + statement + kPage), 3) << statement;
  EXPECT_EQ(copiesInData(kPostScript + "<< /NumCopies 1 >> setpagedevice\n" + kPage), 1);
  for (const char* statement :
       {"", "/NumCopies known\n", "/NumCopies n def\n", "/#copies exch def\n", "/NumCopies 0 def\n"})
    EXPECT_EQ(copiesInData(kPostScript + statement + kPage), std::nullopt) << statement;
  EXPECT_EQ(copiesInData(kPostScript + kPage + "/NumCopies 3 def\n"), std::nullopt);
}

TEST(CopiesInData, PrintersCommandsSayThemAlsoInFrontOfPostScript) {
  for (const char* line :
       {"@PJL SET COPIES=3\r\n", "@PJL SET COPIES = 3\n", "@PJL SET QTY=3\n", "@PJL DEFAULT COPIES=3\n"}) {
    EXPECT_EQ(copiesInData(kExit + "@PJL JOB\n" + line +
                           "@PJL ENTER LANGUAGE=PCL\n\x1b"
                           "E"),
              3)
        << line;
    EXPECT_EQ(copiesInData(kExit + line + "@PJL ENTER LANGUAGE=POSTSCRIPT\n" + kPostScript + kPage), 3) << line;
  }
  EXPECT_EQ(copiesInData(kExit + "@PJL SET COPIES=3\n" + kPostScript + "/NumCopies 2 def\n" + kPage), 2);
  EXPECT_EQ(copiesInData(kExit + "@PJL COMMENT COPIES 3\n@PJL SET DUPLEX=ON\n"), std::nullopt);
}

TEST(CopiesInData, PclSaysThemAmongOtherThings) {
  const std::string reset =
      "\x1b"
      "E";
  EXPECT_EQ(copiesInData(reset + "\x1b&l3X"), 3);
  EXPECT_EQ(copiesInData(reset + "\x1b&l1o3x6D"), 3);
  EXPECT_EQ(copiesInData(reset + "\x1b&l26a2X\x1b&l3X"), 3);
  EXPECT_EQ(copiesInData(reset + "\x1b&l1O\x1b(s3X"), std::nullopt);
  EXPECT_EQ(copiesInData(reset + "\x1b&l"), std::nullopt);
  EXPECT_EQ(copiesInData("text \x1b&l3X"), std::nullopt);
}

TEST(CopiesInData, NothingElseDoes) {
  EXPECT_EQ(copiesInData(""), std::nullopt);
  EXPECT_EQ(copiesInData("NumCopies 3"), std::nullopt);
  EXPECT_EQ(copiesInData("%PDF-1.4 /NumCopies 3 %!"), std::nullopt);
  EXPECT_EQ(copiesInData(kPostScript + std::string(kCopiesBytes, ' ') + "/NumCopies 3 def"), std::nullopt);
  EXPECT_EQ(copiesInFile("/no/such/file"), std::nullopt);
}

}  // namespace
}  // namespace printclient
