#include "client/notices/desktop_notices.h"
#include "client/page/show_page.h"
#include "corvane/base/text.h"
#include "tests/support/import_seam.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shellapi.h>

MG_PLAIN_SEAM(L"shell32.dll", Shell_NotifyIconW, FALSE)
MG_PLAIN_SEAM(L"shell32.dll", ShellExecuteW, nullptr)

namespace printclient {
namespace {

using ::testing::ElementsAre;

class ShellTest : public ::testing::Test {
 protected:
  ShellTest() {
    Shell_NotifyIconWSeam.replacement = [this](DWORD what, PNOTIFYICONDATAW icon) -> WINBOOL {
      std::string line = what == NIM_ADD ? "add" : what == NIM_DELETE ? "delete" : "show";
      if ((icon->uFlags & NIF_INFO) != 0) {
        line += "|" + corvane::toUtf8(icon->szInfoTitle) + "|" + corvane::toUtf8(icon->szInfo) + "|" +
                std::to_string(icon->dwInfoFlags);
      }
      m_calls.push_back(line);
      return what == m_refused ? FALSE : TRUE;
    };
  }
  ~ShellTest() override {
    Shell_NotifyIconWSeam.restore();
    ShellExecuteWSeam.restore();
  }

  std::vector<std::string> m_calls;
  DWORD m_refused = 99;
};

TEST_F(ShellTest, ANoticeIsABalloonOfAnIconThatIsThereFromTheFirstOneOn) {
  {
    const auto desktop = openDesktop();
    EXPECT_TRUE(m_calls.empty());
    EXPECT_EQ(desktop->show({"title", "text", true}), "");
    EXPECT_EQ(desktop->show({"other", "words", false}), "");
  }
  EXPECT_THAT(m_calls, ElementsAre("add", "show|title|text|3", "show|other|words|2", "delete"));
}

TEST_F(ShellTest, ALongTextIsCutBetweenCharacters) {
  const auto desktop = openDesktop();
  EXPECT_EQ(desktop->show({std::string(62, 'x') + "\xF0\x9F\x96\xA8", std::string(300, 'y'), true}), "");
  EXPECT_EQ(m_calls.back(), "show|" + std::string(62, 'x') + "|" + std::string(255, 'y') + "|3");
}

TEST_F(ShellTest, WithoutANotificationAreaItSaysWhy) {
  m_refused = NIM_ADD;
  EXPECT_EQ(openDesktop()->show({"title", "text", true}), "there is no notification area");
  m_refused = NIM_MODIFY;
  EXPECT_EQ(openDesktop()->show({"title", "text", true}), "the notification area takes no notices");
  EXPECT_THAT(m_calls, ElementsAre("add", "add", "show|title|text|3", "delete"));
}

TEST_F(ShellTest, TheBrowserOfWindowsGetsTheDocument) {
  std::wstring opened;
  std::intptr_t answer = 42;
  ShellExecuteWSeam.replacement = [&](HWND, LPCWSTR verb, LPCWSTR file, LPCWSTR, LPCWSTR, INT) -> HINSTANCE {
    opened = std::wstring(verb) + L" " + file;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return reinterpret_cast<HINSTANCE>(answer);
  };
  EXPECT_EQ(openInBrowser(L"C:\\x\\page.html"), "");
  EXPECT_EQ(opened, L"open C:\\x\\page.html");
  answer = SE_ERR_NOASSOC;
  EXPECT_NE(openInBrowser(L"C:\\x\\page.html"), "");
}

}  // namespace
}  // namespace printclient
