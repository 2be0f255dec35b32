#include "converter/announcement.h"

#include <gtest/gtest.h>
#include <sstream>

namespace mg::converter {
namespace {

Announcement read(const std::string& document) {
  std::istringstream stream(document);
  return readAnnouncement(stream);
}

std::string pages(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i)
    text += "%%Page: " + std::to_string(i) + " " + std::to_string(i) + "\nshowpage\n";
  return text;
}

const std::string kHead = "%!PS-Adobe-3.0\n";

TEST(Announcement, HeaderPageCommentsAndEndAreRead) {
  const Announcement announced = read(kHead + "%%Pages: 3\n%%EndComments\n" + pages(3) + "%%Trailer\n%%EOF\n");
  EXPECT_EQ(announced.pages, 3);
  EXPECT_EQ(announced.pageComments, 3);
  EXPECT_TRUE(announced.hasEnd);
  EXPECT_TRUE(announced.isWhole());
  EXPECT_EQ(announced.expectedPages(), 3);
}

TEST(Announcement, NothingIsAnnouncedByADocumentWithoutComments) {
  const Announcement announced = read("%!PS-Adobe-3.0\nshowpage\n");
  EXPECT_EQ(announced.expectedPages(), -1);
  EXPECT_TRUE(announced.isWhole());
}

TEST(Announcement, AtEndIsFoundInTheTrailer) {
  const Announcement announced = read(kHead + "%%Pages: (atend)\n" + pages(2) + "%%Trailer\n%%Pages: 2 1\n%%EOF\n\x04");
  EXPECT_EQ(announced.pages, 2);
  EXPECT_FALSE(announced.isPromised);
}

TEST(Announcement, APromiseThatIsNotKeptIsACutFile) {
  const Announcement announced = read(kHead + "%%Pages: (atend)\n" + pages(2));
  EXPECT_TRUE(announced.isPromised);
  EXPECT_FALSE(announced.isWhole());
  EXPECT_TRUE(read(kHead + "%%Pages: (atend)\n" + pages(2) + "%%EOF\n").isWhole());
}

TEST(Announcement, FewerPageCommentsThanPagesAndNoEndIsACutFile) {
  EXPECT_FALSE(read(kHead + "%%Pages: 17\n" + pages(8)).isWhole());
  EXPECT_TRUE(read(kHead + "%%Pages: 17\n" + pages(8) + "%%EOF\n").isWhole());
  EXPECT_TRUE(read(kHead + "%%Pages: 8\n" + pages(8)).isWhole());
}

TEST(Announcement, ALineEndsWhereItEndsWhateverItHoldsAndHoweverLongItIs) {
  for (const char* end : {"\n", "\r", "\r\n"}) {
    for (const char filling : {'x', '\t', '\x0e', '\x7f', '\x80', '\x8a', '\x8d', '\xff'}) {
      for (size_t length = 0; length < 34; ++length) {
        const std::string line = std::string(length, filling) + end;
        const std::string document = kHead + line + "%%Page: 1 1" + end + line + line + "%%Page: 2 2" + end + line;
        ASSERT_EQ(read(document).pageComments, 2) << length << " of " << int{filling};
      }
    }
  }
}

TEST(Announcement, AnEndBeforeALaterPageIsNotTheEnd) {
  EXPECT_FALSE(read(kHead + "%%Pages: 3\n%%EOF\n" + pages(2)).hasEnd);
}

TEST(Announcement, EmbeddedDocumentsAreNotCounted) {
  const std::string embedded = "%%BeginDocument: a.eps\n%!PS-Adobe-3.0 EPSF-3.0\n%%Pages: 9\n" + pages(9) +
                               "%%BeginDocument: b.eps\n%!PS-Adobe-3.0 EPSF-3.0\n%%EndDocument\n%%EOF\n"
                               "%%EndDocument\n";
  const Announcement announced =
      read(kHead + "%%Pages: 2\n%%Page: 1 1\n" + embedded + "showpage\n%%Page: 2 2\n" + embedded);
  EXPECT_EQ(announced.pages, 2);
  EXPECT_EQ(announced.pageComments, 2);
  EXPECT_FALSE(announced.hasEnd);
  EXPECT_FALSE(announced.isMixed);
}

TEST(Announcement, CommentsInsideDataAreNotCounted) {
  const std::string data = "\n%%Page: 2 2\n%%EOF\n";
  Announcement announced = read(kHead + "%%Page: 1 1\n%%BeginBinary: " + std::to_string(data.size()) + "\n" + data +
                                "%%EndBinary\nshowpage\n");
  EXPECT_EQ(announced.pageComments, 1);
  EXPECT_FALSE(announced.hasEnd);
  announced = read(kHead + "%%Page: 1 1\n%%BeginData: 3 ASCII Lines\n" + data + "%%EndData\n%%Page: 2 2\n");
  EXPECT_EQ(announced.pageComments, 2);
  EXPECT_FALSE(announced.hasEnd);
}

TEST(Announcement, DataThatAnnounceMoreThanThereIsEndWithTheFile) {
  EXPECT_EQ(read(kHead + "%%BeginBinary: 99999999999\n%%Page: 1 1\n").pageComments, 0);
  EXPECT_EQ(read(kHead + "%%BeginData: 99999999999 Hex Lines\n%%Page: 1 1\n").pageComments, 0);
  EXPECT_EQ(read(kHead + "%%BeginBinary: nonsense\n%%Page: 1 1\n").pageComments, 1);
}

TEST(Announcement, OnlyPagesWithTheNextNumberCount) {
  EXPECT_EQ(read(kHead + "%%Page: i 1\n%%Page: (two b) 2\t\n%%Page: 1 1\n%%Page: ? ?\n%%Page: 4\n").pageComments, 2);
}

TEST(Announcement, DocumentsOneBehindTheOtherAnnounceNothing) {
  const std::string one = kHead + "%%Pages: 1\n" + pages(1) + "%%EOF\n";
  EXPECT_EQ(read(one + one).expectedPages(), -1);
  EXPECT_TRUE(read(one + one).isMixed);
}

TEST(Announcement, AProcedureSetThatIsBroughtAlongIsNoOtherDocument) {
  const Announcement announced = read(kHead +
                                      "%%Pages: 1\n%%BeginProcSet: x\n%!PS-Adobe-3.0 Resource-ProcSet\n"
                                      "%!PS-AdobeFont-1.0: Foo\n%%EndProcSet\n" +
                                      pages(1) + "%%EOF\n");
  EXPECT_FALSE(announced.isMixed);
  EXPECT_EQ(announced.expectedPages(), 1);
}

TEST(Announcement, EveryLineEndIsOne) {
  for (const std::string end : {"\n", "\r", "\r\n"}) {
    const Announcement announced = read("%!PS-Adobe-3.0" + end + "%%Pages: 1" + end + "%%Page: 1 1" + end + "%%EOF");
    EXPECT_EQ(announced.pages, 1);
    EXPECT_EQ(announced.pageComments, 1);
    EXPECT_TRUE(announced.hasEnd);
  }
}

TEST(Announcement, OddNumbersAnnounceNothing) {
  for (const char* odd : {"-1", "x", "", "99999999999999999999", "1000001"})
    EXPECT_EQ(read(kHead + "%%Pages: " + odd + "\n").pages, -1) << odd;
  EXPECT_EQ(read(kHead + "%%Pages: 4 1\n%%Pages: 7\n").pages, 4);
  EXPECT_EQ(read(kHead + "%%Pages:5\n").pages, 5);
}

TEST(Announcement, PageCommentsSayMoreThanANumberInTheHeader) {
  EXPECT_EQ(read(kHead + "%%Pages: 8\n" + pages(2) + "%%EOF\n").expectedPages(), 2);
}

// The document is read in blocks of 65,536 bytes.
TEST(Announcement, WhateverABlockEndsInIsRead) {
  const std::string data = "\r\n%%Page: 2 2\r\n%%EOF\r\n";
  const std::string shown = "%%Pages: 2\r\n%%Page: 1 1\r\n%%BeginBinary: " + std::to_string(data.size()) + "\r\n" +
                            data + "%%EndBinary\r\n%%Page: 2 2\r\n\r\n%%EOF\r\n";
  for (std::size_t before = 65536 - shown.size(); before <= 65536; ++before) {
    SCOPED_TRACE(before);
    const Announcement announced = read(kHead + std::string(before - kHead.size() - 2, '%') + "\r\n" + shown);
    EXPECT_EQ(announced.pages, 2);
    EXPECT_EQ(announced.pageComments, 2);
    EXPECT_TRUE(announced.hasEnd);
    EXPECT_FALSE(announced.isPromised);
  }
}

TEST(Announcement, ALineOfMegabytesIsRead) {
  const Announcement announced = read(kHead + "%%Page: 1 1 " + std::string(3u << 20, 'x') + "\n%%EOF\n");
  EXPECT_EQ(announced.pageComments, 0);
  EXPECT_TRUE(announced.hasEnd);
}

}  // namespace
}  // namespace mg::converter
