#include "client/reporter.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace printclient {
namespace {

class ReporterTest : public ::testing::Test {
 protected:
  ~ReporterTest() override { std::fclose(m_file); }

  std::string written() const {
    std::rewind(m_file);
    char text[4096];
    return std::string(text, std::fread(text, 1, sizeof text, m_file));
  }

  std::FILE* const m_file = std::tmpfile();
};

TEST_F(ReporterTest, ProgressIsALineWhereNothingCanBeWrittenOver) {
  {
    Reporter reporter(m_file, false);
    reporter.progress("half");
    reporter.line("done");
  }
  EXPECT_EQ(written(), "half\ndone\n");
}

TEST_F(ReporterTest, OnATerminalALineReplacesTheProgressAndProgressTheProgress) {
  {
    Reporter reporter(m_file, true);
    reporter.line("begin");
    reporter.progress("half");
    reporter.progress("most");
    reporter.line("done");
    reporter.line("next");
  }
  EXPECT_EQ(written(), "begin\nhalf\r\x1b[Kmost\r\x1b[Kdone\nnext\n");
}

TEST_F(ReporterTest, WhateverAPeerCallsItsDocumentIsOneLineThatCanBeSeen) {
  {
    Reporter reporter(m_file, true);
    reporter.line("printed \"a\nb\x1b[2J\xE2\x80\xAE\"");
    reporter.progress("receiving \"a\rb\"");
  }
  EXPECT_EQ(written(), "printed \"a b?[2J?\"\nreceiving \"a b\"");
}

}  // namespace
}  // namespace printclient
