#include "admin/spooler/spooler_port.h"

#include "tests/support/admin/driver_spooler.h"
#include "tests/support/admin/installation_fixture.h"

#include <winspool.h>

#include <functional>
#include <gmock/gmock.h>

MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", XcvDataW, FALSE)

namespace admin {
namespace {

// A spooler as Windows has it, whose monitor says that all went well.
class SpoolerPortTest : public InstallationTest {
 protected:
  SpoolerPortTest() {
    hideWine();
    OpenPrinterWSeam.replacement = [this](LPWSTR name, LPHANDLE handle, LPPRINTER_DEFAULTSW) {
      m_channel = name;
      *handle = reinterpret_cast<HANDLE>(7);
      return TRUE;
    };
    XcvDataWSeam.replacement = [this](HANDLE, LPCWSTR command, BYTE* input, DWORD, BYTE*, DWORD, DWORD*,
                                      DWORD* status) {
      m_commands.push_back(std::wstring(command) + L" " + reinterpret_cast<const wchar_t*>(input));
      if (m_obeys && m_commands.back().starts_with(L"Add")) ports.emplace_back(L"CPP5");
      if (m_obeys && m_commands.back().starts_with(L"Delete")) ports.clear();
      *status = ERROR_SUCCESS;
      return TRUE;
    };
  }

  static std::string failureOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::kFailed);
      return failure.what();
    }
    return "";
  }

  bool m_obeys = true;
  std::wstring m_channel;
  std::vector<std::wstring> m_commands;
};

TEST_F(SpoolerPortTest, ComesAndGoesThroughTheMonitorOnce) {
  EXPECT_TRUE(addPort(L"CPP5"));
  EXPECT_FALSE(addPort(L"CPP5"));
  EXPECT_TRUE(deletePort(L"CPP5"));
  EXPECT_FALSE(deletePort(L"CPP5"));
  EXPECT_THAT(m_commands, testing::ElementsAre(L"AddPort CPP5", L"DeletePort CPP5"));
  EXPECT_EQ(m_channel, L",XcvMonitor Client Printer Port");
}

TEST_F(SpoolerPortTest, OneThatTheMonitorDidNotAddOrDeleteIsAFailureWhateverItSays) {
  m_obeys = false;
  EXPECT_EQ(failureOf([] { addPort(L"CPP5"); }), "port \"CPP5\" was not added, although the monitor says so");
  ports = {L"CPP5"};
  EXPECT_EQ(failureOf([] { deletePort(L"CPP5"); }), "port \"CPP5\" was not deleted, although the monitor says so");
}

TEST_F(SpoolerPortTest, OfAnotherMonitorIsNotOurs) {
  ports = {L"CPP5"};
  portMonitor = L"Local Port";
  EXPECT_FALSE(hasPort(L"CPP5"));
}

TEST(PortName, OfASessionIsCppAndItsNumber) {
  EXPECT_EQ(sessionPort(5), L"CPP5");
  EXPECT_EQ(portNameRefusal(sessionPort(4294967295u)), "");
}

TEST(PortName, MayHave259CharactersAndNotOneMore) {
  EXPECT_EQ(portNameRefusal(std::wstring(259, L'a')), "");
  EXPECT_EQ(portNameRefusal(std::wstring(260, L'a')), "a port name of 260 characters is too long: 259 are possible");
}

TEST(PortName, MayHoldNoPathControlCharacterOrComma) {
  EXPECT_EQ(portNameRefusal(L"C:\\port"),
            "the port name \"C:\\port\" holds a path: the spooler reads such a name as a file");
  EXPECT_EQ(portNameRefusal(L"a/b"), "the port name \"a/b\" holds a path: the spooler reads such a name as a file");
  EXPECT_EQ(portNameRefusal(L"a\tb"), "a port name may not hold control characters");
  EXPECT_EQ(portNameRefusal(L"a\x7f"), "a port name may not hold control characters");
  EXPECT_EQ(portNameRefusal(L"a,b"),
            "the port name \"a,b\" holds a comma: the spooler reads what follows as something else");
}

TEST(PortName, IsNotEmptyAndHasNoBlanksAtItsEnds) {
  EXPECT_EQ(portNameRefusal(L""), "a port needs a name");
  EXPECT_EQ(portNameRefusal(L" a"), "the port name \" a\" begins or ends with a space");
  EXPECT_EQ(portNameRefusal(L"a "), "the port name \"a \" begins or ends with a space");
}

TEST(PortInUse, NamesThePrintersThatAreToBeRemoved) {
  const Failure failure =
      portInUse(L"CPP5", {{L"Laser", L"CPP5", L"", L"", L"", true}, {L"Ink", L"CPP5", L"", L"", L""}});
  EXPECT_EQ(failure.code(), ExitCode::kInUse);
  EXPECT_STREQ(failure.what(), "port \"CPP5\" is used by \"Ink\"");
  EXPECT_EQ(failure.remedy(), "Remove these printers or give them another port first.");
}

TEST(PortInUse, DoesNotSendAnybodyToRemoveAPrinterThatIsDeletedAlready) {
  const Failure failure = portInUse(L"CPP5", {{L"Laser", L"CPP5", L"", L"", L"", true}});
  EXPECT_STREQ(failure.what(),
               "port \"CPP5\" is used by \"Laser\", already deleted, which the spooler keeps until the last job has "
               "left its queue");
  EXPECT_EQ(failure.remedy(), "Let these jobs print, or delete them there, and repeat the command.");
}

}  // namespace
}  // namespace admin
