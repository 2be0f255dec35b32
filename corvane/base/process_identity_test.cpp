#include "corvane/base/process.h"
#include "tests/support/import_seam.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <stdexcept>

MG_IMPORT_SEAM(L"advapi32.dll", OpenThreadToken, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", SetThreadToken, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", ImpersonateAnonymousToken, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CloseHandle, FALSE)

namespace {

using corvane::ProcessIdentity;

// The number of the token that the thread acts with; 0 for that of the process.
LONGLONG tokenOfThread() {
  HANDLE token = nullptr;
  if (!OpenThreadTokenSeam.real(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return 0;
  TOKEN_STATISTICS statistics{};
  DWORD size = 0;
  EXPECT_TRUE(GetTokenInformation(token, TokenStatistics, &statistics, sizeof statistics, &size));
  CloseHandleSeam.real(token);
  return (static_cast<LONGLONG>(statistics.TokenId.HighPart) << 32) + statistics.TokenId.LowPart;
}

class ProcessIdentityTest : public testing::Test {
 protected:
  ProcessIdentityTest() {
    EXPECT_TRUE(ImpersonateSelf(SecurityImpersonation));
    m_user = tokenOfThread();
    EXPECT_NE(m_user, 0);
    SetLastError(4711);
  }
  ~ProcessIdentityTest() override {
    RevertToSelf();
    ProcessIdentity::takeError();
  }

  ImportSeams m_seams;
  LONGLONG m_user = 0;
};

TEST_F(ProcessIdentityTest, PutsTheUserAsideAndBack) {
  {
    const ProcessIdentity identity;
    EXPECT_EQ(tokenOfThread(), 0);
  }
  EXPECT_EQ(tokenOfThread(), m_user);
  EXPECT_EQ(ProcessIdentity::takeError(), 0u);
}

TEST_F(ProcessIdentityTest, PutsTheUserBackWhenAnExceptionComesInBetween) {
  try {
    const ProcessIdentity identity;
    throw std::runtime_error("in between");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(tokenOfThread(), m_user);
  }
}

TEST_F(ProcessIdentityTest, OneWithinAnotherChangesNothing) {
  {
    const ProcessIdentity outer;
    {
      const ProcessIdentity inner;
      EXPECT_EQ(tokenOfThread(), 0);
    }
    EXPECT_EQ(tokenOfThread(), 0);
  }
  EXPECT_EQ(tokenOfThread(), m_user);
}

TEST_F(ProcessIdentityTest, AThreadThatImpersonatesNobodyIsLeftAlone) {
  RevertToSelf();
  SetThreadTokenSeam.watch = [](PHANDLE, HANDLE) { ADD_FAILURE() << "a token was set"; };
  {
    const ProcessIdentity identity;
    EXPECT_EQ(tokenOfThread(), 0);
  }
  EXPECT_EQ(tokenOfThread(), 0);
}

TEST_F(ProcessIdentityTest, KeepsTheLastErrorAndClosesTheToken) {
  HANDLE taken = nullptr;
  bool isClosed = false;
  OpenThreadTokenSeam.replacement = [&](HANDLE thread, DWORD access, WINBOOL asSelf, PHANDLE token) -> WINBOOL {
    EXPECT_EQ(asSelf, TRUE) << "the user may not be allowed to open his own token";
    const WINBOOL opened = OpenThreadTokenSeam.real(thread, access, asSelf, token);
    taken = *token;
    return opened;
  };
  CloseHandleSeam.watch = [&](HANDLE handle) { isClosed |= handle == taken; };
  SetLastError(4711);
  {
    const ProcessIdentity identity;
    EXPECT_EQ(GetLastError(), 4711u);
    EXPECT_FALSE(isClosed);
  }
  EXPECT_EQ(GetLastError(), 4711u);
  EXPECT_TRUE(isClosed);
  isClosed = false;
  SetThreadTokenSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  { const ProcessIdentity identity; }
  EXPECT_TRUE(isClosed);
  EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(ProcessIdentityTest, AUserWhoCannotBePutAsideStays) {
  SetThreadTokenSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  {
    const ProcessIdentity identity;
    EXPECT_EQ(tokenOfThread(), m_user);
  }
  EXPECT_EQ(tokenOfThread(), m_user);
  OpenThreadTokenSeam.fail(1, FALSE, ERROR_CANT_OPEN_ANONYMOUS);
  { const ProcessIdentity identity; }
  EXPECT_EQ(tokenOfThread(), m_user);
}

// Never with the rights of the process: the thread is nobody's then, and the log says so.
TEST_F(ProcessIdentityTest, AUserWhoCannotBePutBackLeavesTheThreadWithoutAnyRights) {
  int anonymous = 0;
  ImpersonateAnonymousTokenSeam.replacement = [&](HANDLE thread) -> WINBOOL {
    EXPECT_EQ(thread, GetCurrentThread());
    ++anonymous;
    return TRUE;
  };
  {
    const ProcessIdentity identity;
    SetThreadTokenSeam.fail(1, FALSE, ERROR_BAD_IMPERSONATION_LEVEL);
    SetLastError(4711);
  }
  EXPECT_EQ(anonymous, 1);
  EXPECT_EQ(GetLastError(), 4711u);
  EXPECT_EQ(ProcessIdentity::takeError(), DWORD{ERROR_BAD_IMPERSONATION_LEVEL});
  EXPECT_EQ(ProcessIdentity::takeError(), 0u) << "it is said once";
}

using ProcessIdentityDeathTest = ProcessIdentityTest;

TEST_F(ProcessIdentityDeathTest, AThreadThatWouldKeepTheRightsOfTheProcessEndsIt) {
  EXPECT_DEATH(
      {
        const ProcessIdentity identity;
        SetThreadTokenSeam.fail(1, FALSE, ERROR_BAD_IMPERSONATION_LEVEL);
        ImpersonateAnonymousTokenSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
      },
      "");
}

}  // namespace
