#include "admin/spooler/spooler_port.h"

#include <gmock/gmock.h>

namespace admin {
namespace {

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
