#include "client/content_probe.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

ContentProbe probeOf(const std::string& data, std::size_t pieceSize = 1000000) {
  ContentProbe probe;
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
  for (std::size_t at = 0; at < data.size(); at += pieceSize) {
    probe.feed({bytes + at, std::min(pieceSize, data.size() - at)});
  }
  return probe;
}

TEST(ContentProbe, KnowsPdfPostScriptTextAndTheRest) {
  for (const std::size_t piece : {std::size_t{1}, std::size_t{1000}}) {
    EXPECT_EQ(probeOf("%PDF-1.7\n...", piece).extension(), ".pdf");
    EXPECT_EQ(probeOf("%!PS-Adobe-3.0\n", piece).extension(), ".ps");
    EXPECT_EQ(probeOf("\x04%!PS\n", piece).extension(), ".ps");
    EXPECT_EQ(probeOf("plain\ttext\r\n\f", piece).extension(), ".txt");
    EXPECT_EQ(probeOf("caf\xC3\xA9", piece).extension(), ".txt");
    EXPECT_EQ(probeOf("text\x1b"
                      "E",
                      piece)
                  .extension(),
              ".prn");
    EXPECT_EQ(probeOf("%PDF", piece).extension(), ".txt");
  }
  EXPECT_EQ(probeOf(std::string(4095, 'x') + "\x1b").extension(), ".prn");
  EXPECT_EQ(probeOf(std::string(4096, 'x') + "\x1b").extension(), ".txt");
  EXPECT_EQ(probeOf("").extension(), ".prn");
}

TEST(ContentProbe, KnowsPostScriptBehindPrinterCommands) {
  const std::string exit = "\x1b%-12345X";
  const std::string pjl = exit + "@PJL JOB\r\n@PJL SET COPIES=1\n@PJL ENTER LANGUAGE=POSTSCRIPT \r\n";
  for (const std::size_t piece : {std::size_t{1}, std::size_t{1000}}) {
    for (const std::string& front :
         {std::string("\x04"), exit, pjl, "\r\n \t" + pjl, "\x04" + exit + exit, std::string("\n")}) {
      const ContentProbe probe = probeOf(front + "%!PS-Adobe-3.0\n" + "\x1b and more", piece);
      EXPECT_TRUE(probe.isWrappedPostScript()) << front;
      EXPECT_EQ(probe.extension(), ".ps") << front;
    }
    for (const std::string& other : {pjl, pjl + "\x1b" + "E", pjl + "x%!PS", exit + "%PDF-1.4", std::string("@PJL"),
                                     std::string("\x1b%-12345Y%!PS"), std::string("\x04%"), std::string()}) {
      const ContentProbe probe = probeOf(other, piece);
      EXPECT_FALSE(probe.isWrappedPostScript()) << other;
      EXPECT_NE(probe.extension(), ".ps") << other;
    }
  }
  EXPECT_FALSE(probeOf("%!PS").isWrappedPostScript());
  EXPECT_TRUE(probeOf(exit + "@PJL " + std::string(4096 - 17, 'x') + "\n%!PS").isWrappedPostScript());
  EXPECT_FALSE(probeOf(exit + "@PJL " + std::string(4096 - 16, 'x') + "\n%!PS").isWrappedPostScript());
}

TEST(ContentProbe, FindsTheEndOfAPdfHoweverItArrives) {
  const std::string pdf = "%PDF-1.4\n" + std::string(5000, 'x') + "\n%%EOF\n";
  for (const std::size_t piece : {1, 3, 700, 1024, 4000, 100000})
    EXPECT_TRUE(probeOf(pdf, piece).hasPdfEnd()) << piece;
}

TEST(ContentProbe, AnEndMarkFurtherAwayThanTheLastKilobyteDoesNotCount) {
  EXPECT_TRUE(probeOf("%PDF-1.4 %%EOF" + std::string(1019, 'x'), 7).hasPdfEnd());
  EXPECT_FALSE(probeOf("%PDF-1.4 %%EOF" + std::string(1020, 'x'), 7).hasPdfEnd());
  EXPECT_FALSE(probeOf("%PDF-1.4").hasPdfEnd());
}

TEST(ContentProbe, CountsTheBytes) {
  EXPECT_EQ(probeOf(std::string(70000, 'x'), 4096).size(), 70000u);
}

}  // namespace
}  // namespace printclient
