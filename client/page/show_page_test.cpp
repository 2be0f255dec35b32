#include "client/page/show_page.h"

#include "client/page/page_link.h"
#include "programs/text.h"
#include "tests/support/client/page_fixture.h"

#include <fstream>
#include <gmock/gmock.h>

namespace printclient {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class ShowPageTest : public PageFixture {
 protected:
  // Shows what is in the folder; the browser has these words.
  ShownPage show(const std::string& words = "") {
    return showPage(m_folder / "out", [this, words](const fs::path& document) {
      m_opened = document;
      return words;
    });
  }
  fs::path m_opened;
};

TEST_F(ShowPageTest, TheBrowserGetsADocumentThatLeadsToThePage) {
  const PageLink link(m_folder / "out", "http://127.0.0.1:4000/secret/");
  const ShownPage shown = show();
  EXPECT_EQ(shown.exitCode, 0);
  EXPECT_EQ(shown.message, "your print jobs are opened in the browser\n");
  EXPECT_EQ(m_opened, link.path());
#ifndef _WIN32
  EXPECT_EQ(fs::status(m_opened).permissions(), fs::perms::owner_read | fs::perms::owner_write);
#endif
  std::ifstream in(m_opened, std::ios::binary);
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(in), {}),
              HasSubstr("<meta http-equiv=\"refresh\" content=\"0;url=http://127.0.0.1:4000/secret/\">"));
}

TEST_F(ShowPageTest, WithoutAPrintClientItSaysWhatToDo) {
  { const PageLink ended(m_folder / "out", "http://127.0.0.1:4000/secret/"); }
  EXPECT_EQ(filesIn("out"), 0u);
  const ShownPage shown = show();
  EXPECT_EQ(shown.exitCode, 1);
  EXPECT_EQ(shown.message,
            "printclient: no print client of yours is running with a page; start one (without --no-page), and then "
            "call printclient --show again\n");
  EXPECT_TRUE(m_opened.empty());
}

TEST_F(ShowPageTest, WhatAKilledPrintClientLeftIsNotOpened) {
  fs::path left;
  {
    const PageLink killed(m_folder / "out", "http://127.0.0.1:4000/secret/");
    left = killed.path();
    fs::copy_file(left, m_folder / "copy");
  }
  fs::copy_file(m_folder / "copy", left);
  EXPECT_EQ(show().exitCode, 1);
  EXPECT_FALSE(fs::exists(left));
}

TEST_F(ShowPageTest, WithoutABrowserThePersonGetsTheAddress) {
  const PageLink link(m_folder / "out", "http://127.0.0.1:4000/secret/");
  const ShownPage shown = show("there is no desktop here");
  EXPECT_EQ(shown.exitCode, 1);
  EXPECT_EQ(shown.message,
            "printclient: the browser cannot be opened: there is no desktop here; open this address in a browser on "
            "this machine, and show it to nobody:\nhttp://127.0.0.1:4000/secret/\n");
}

TEST_F(ShowPageTest, OfSeveralTheLatestIsOpenedAndTheOthersAreNamed) {
  const PageLink first(m_folder / "out", "http://127.0.0.1:4000/one/");
  const PageLink second(m_folder / "out", "http://127.0.0.1:4001/two/");
#ifndef _WIN32
  fs::last_write_time(first.path(), fs::last_write_time(second.path()) - std::chrono::hours(1));
  EXPECT_EQ(show().message,
            "your print jobs are opened in the browser\nanother print client of yours has its page at "
            "http://127.0.0.1:4000/one/\n");
  EXPECT_EQ(m_opened, second.path());
#else
  EXPECT_THAT(show().message, HasSubstr("another print client of yours has its page at http://127.0.0.1:400"));
#endif
}

}  // namespace
}  // namespace printclient
