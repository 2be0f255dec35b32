#include "client/persons_printers.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

TEST(PaperOfAPrinter, IsNamedWithTheResolution) {
  EXPECT_EQ(paperWords({}, 0), "");
  EXPECT_EQ(paperWords({}, 600), ", 600 dpi");
  EXPECT_EQ(paperWords({"A4"}, 0), ", paper A4");
  EXPECT_EQ(paperWords({"A4", "Letter"}, 1200), ", 1200 dpi, paper A4, Letter");
}

TEST(PaperOfAPrinter, IsCountedWhereThereIsMuchOfIt) {
  EXPECT_EQ(paperWords({"1", "2", "3", "4", "5", "6", "7"}, 0), ", paper 1, 2, 3, 4, 5, 6, 7");
  EXPECT_EQ(paperWords({"1", "2", "3", "4", "5", "6", "7", "8"}, 0), ", paper 1, 2, 3, 4, 5, 6 and 2 more");
}

}  // namespace
}  // namespace printclient
