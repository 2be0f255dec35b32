#include "client/sinks/printer/ghostscript_printing.h"

#include "corvane/base/process.h"
#include "programs/text.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace printclient {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class GhostscriptPrintingTest : public ::testing::Test {
 protected:
  ~GhostscriptPrintingTest() override { fs::remove_all(m_folder); }
  fs::path install(const std::string& version) const {
    const fs::path program = m_folder / "gs" / version / "bin" / "gswin64c.exe";
    fs::create_directories(program.parent_path());
    std::ofstream(program) << "a program";
    return program;
  }

  const fs::path m_folder = fs::temp_directory_path() / ("gs_" + std::to_string(corvane::processId()));
};

TEST_F(GhostscriptPrintingTest, TheLatestGhostscriptDrawsOnTheQueueAndItsNameIsOneArgument) {
  install("gs9.56.1");
  const fs::path latest = install("gs10.02.1");
  install("gs10.02.0");
  fs::create_directories(m_folder / "gs" / "gs11.00.0");
  const auto settings = ghostscriptFor("Desk \"2\" & more", m_folder);
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->program, programs::fromPath(latest));
  EXPECT_THAT(settings->arguments, ElementsAre("-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dNoCancel",
                                               "-sDEVICE=mswinpr2", "-sOutputFile=%printer%Desk \"2\" & more", "-f"));
  EXPECT_TRUE(settings->hasPathForEachCopy);
  EXPECT_EQ(settings->limit, CommandSink::kDefaultLimit);
}

TEST_F(GhostscriptPrintingTest, WithoutGhostscriptOrWithANameThatItWouldMisreadThereIsNone) {
  EXPECT_FALSE(ghostscriptFor("Desk", m_folder));
  EXPECT_FALSE(ghostscriptFor("Desk", ""));
  install("gs10.02.1");
  EXPECT_TRUE(ghostscriptFor("Desk", m_folder));
  EXPECT_FALSE(ghostscriptFor("50 %d", m_folder));
}

}  // namespace
}  // namespace printclient
