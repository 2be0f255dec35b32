#include "monitor/job_end.h"

#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "tests/support/barren_class.h"
#include "tests/support/monitor/job_end_fixture.h"
#include "tests/support/temporary_folder.h"

#include <gmock/gmock.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExW, ERROR_FILE_NOT_FOUND)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRunning[] = " See that aps and the session's print client are running, then print again.";

TEST_F(JobEndTest, ADeliveredJobIsToldWithItsBytesAndLeavesNothingElse) {
  start();
  write("abc");
  write("de");
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 5 bytes."));
  EXPECT_THAT(values(),
              ElementsAre("job=17", "printer=Laser", "document=letter.txt", "process=" + MonitorWorld::processId(),
                          "result=delivered", "session=5", "bytes=5", "user=" + userName()));
  EXPECT_THAT(m_events, IsEmpty());
  EXPECT_THAT(m_log.lines(), IsEmpty());
}

TEST_F(JobEndTest, ThePagesThatTheSpoolerKnewAtTheStartAreToldLast) {
  m_queue.setPages(12, false);
  start();
  write("abc");
  m_queue.clear();
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(values().back(), "pages=12");
  EXPECT_EQ(values().size(), 9u);
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser 0xf000c", "set job 17 level 0 command 6", "close printer"));
}

TEST_F(JobEndTest, ThePagesOfAJobThatItsApplicationStillPrintedAtTheStartAreAskedAgainAtTheEnd) {
  m_queue.setPages(2, true);
  start();
  write("abc");
  m_queue.setPages(12, false);
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(values().back(), "pages=12");
}

TEST_F(JobEndTest, PagesThatMayBecomeMoreOrOfAJobThatFailedEarlierAreNotTold) {
  m_queue.setPages(2, true);
  start();
  write("abc");
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(values().back(), "user=" + userName());
  refuseAttach();
  start();
  EXPECT_EQ(values().back(), "user=" + userName());
}

TEST_F(JobEndTest, ACollectedJobIsToldWithTheBytesThatWereSent) {
  m_printerValue = 3;
  start();
  write("plain text");
  m_port->job->report.bytesTaken = 99;  // as many as are collected where a conversion makes fewer of them
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 10 bytes, sent as it "
                                  "came: not recognised as PostScript. To get a PDF, give the printer a PostScript "
                                  "driver."));
  EXPECT_THAT(values(),
              testing::Contains("remark=sent as it came: not recognised as PostScript. To get a PDF, give the "
                                "printer a PostScript driver."));
}

TEST_F(JobEndTest, BadArgumentsReachNoJobAndTellNothing) {
  MGStartDocPort(m_port, nullptr, 17, 1, reinterpret_cast<LPBYTE>(&m_document));
  write("abc");
  end();
  start();
  MGWritePort(m_port, nullptr, 1, &m_written);
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_THAT(m_events, IsEmpty());
}

TEST_F(JobEndTest, AnUnknownPrinterIsToldWithWhatToDo) {
  m_peer.answer("PortMonitorClient", 5, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  start();
  const std::string cause = "Failed to get the printer's information: Laser, print job #17 has failed to print.";
  const std::string remedy =
      "See that the session's print client is running and brings this printer along, then print again.";
  expectFailure(cause + " " + remedy);
  EXPECT_THAT(values(), ElementsAre("job=17", "printer=Laser", "document=letter.txt",
                                    "process=" + MonitorWorld::processId(), "result=failed", "session=5", "bytes=0",
                                    "cause=" + cause, "remedy=" + remedy, "user=" + userName()));
}

TEST_F(JobEndTest, ARefusedAttachIsToldWithTheSessionsClient) {
  refuseAttach();
  start();
  expectFailure("Failed to attach print job to session for Laser. Start the session's print client, then print again.");
}

TEST_F(JobEndTest, AServerThatGoesAwayAtTheStartIsTold) {
  m_peer.hangUpAt("PortMonitorClient", 4);
  start();
  expectFailure(std::string("Failed to attach print job to session for Laser.") + kRunning);
}

TEST_F(JobEndTest, AServerThatGoesAwayInsteadOfNamingThePrinterIsTold) {
  m_peer.hangUpAt("PortMonitorClient", 5);
  start();
  expectFailure("Failed to get the printer's information: Laser, print job #17 has failed to print." +
                std::string(kRunning));
}

TEST_F(JobEndTest, AModuleThatCannotMakeItsComponentsIsTold) {
  const BarrenClass barren(CS_Bridge::m_className, new corvane::ComponentClass<CS_Bridge>(CS_Version(1, 0, 0, 0)));
  start();
  expectFailure("Failed to create bridge. Restart the print spooler, then print again.");
}

TEST_F(JobEndTest, AClientOfAnotherVersionIsTold) {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(1);
    reply.writeText(L"Quillfern::NTR::PrintClient");
    for (const int number : {5, 0, 0, 0})
      reply.writeInt(number);
  });
  start();
  expectFailure(
      "Failed to get the bridge's class factory. Install the print client and the monitor in the same "
      "version, then print again.");
}

TEST_F(JobEndTest, AFailedWriteIsToldOnceWhateverFollows) {
  start();
  write("abc");
  breakConnection();
  write("de");
  write("fg");
  EXPECT_EQ(end(), FALSE);
  start(L"Laser", 18);
  expectFailure(std::string("Failed to send print job data: The connection has ended.") + kRunning);
  EXPECT_EQ(values()[6], "bytes=3");
}

TEST_F(JobEndTest, AFailedWriteOfAJobThatWasGivenUpIsNotToldAgain) {
  start();
  breakConnection();
  write("abc");
  start(L"Laser", 18);
  EXPECT_EQ(told().size(), 1u);
}

TEST_F(JobEndTest, AJobThatCannotBeCollectedIsTold) {
  m_printerValue = 3;
  start();
  m_port->job->postScriptPath = L"Z:\\no such folder\\job.ps";
  write("abc");
  expectFailure(
      "Failed to open print job's postscript file for writing: Z:\\no such folder\\job.ps, Error: 2. Make "
      "room in the spooler's temporary folder and let the spooler write there, then print again.");
}

TEST_F(JobEndTest, TheClientsAnswerIsTheCause) {
  m_endResult = -2;
  start();
  write("abc");
  EXPECT_EQ(end(), FALSE);
  expectFailure(
      "The print client could not write the document. Make room where the print client puts its documents "
      "and let it write there, then print again.");
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(JobEndTest, AnAnswerWithoutWordsIsTold) {
  m_endResult = 0;
  start();
  end();
  expectFailure(
      "The print client did not take the document. See in the print client's output what it says about the "
      "job, then print again.");
}

TEST_F(JobEndTest, AClientThatIsLostAtTheEndIsTold) {
  m_peer.hangUpAt("PrintClient", 3);
  start();
  end();
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(values()[7], testing::StartsWith("cause=The connection has ended."));
  EXPECT_EQ(values()[8], std::string("remedy=") + (kRunning + 1));
}

TEST_F(JobEndTest, AConversionWithoutAConverterIsToldAndNotTheClientsAnswer) {
  RegQueryValueExWSeam.replacement = [](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                        LPDWORD size) -> LSTATUS {
    if (std::wcscmp(name, L"RootPath") == 0) return ERROR_FILE_NOT_FOUND;
    return RegQueryValueExWSeam.real(key, name, reserved, type, data, size);
  };
  HKEY root = nullptr;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillfern\\Marrowgate", 0, nullptr, 0, KEY_READ, nullptr, &root,
                  nullptr);
  RegCloseKey(root);
  m_endResult = -1;
  m_printerValue = 3;
  start();
  write("%!PS-Adobe-3.0\n");
  EXPECT_EQ(end(), FALSE);
  expectFailure(
      "Failed to query RootPath registry key. Set RootPath in the registry to the installation folder, then "
      "print again.");
}

TEST_F(JobEndTest, ATextInNotepadIsShown) {
  m_world.bringUpInstance();
  m_peer.answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  m_printerValue = 3;
  start(L"Preview PDF");
  write("plain text");
  end();
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Preview PDF\" (session 5) was shown in the session."));
  EXPECT_EQ(values()[4], "result=shown");
  EXPECT_EQ(values()[6], "bytes=0");
  EXPECT_THAT(m_events, IsEmpty());
}

TEST_F(JobEndTest, ATextThatNotepadDoesNotShowHasFailed) {
  m_world.bringUpInstance();
  m_peer.answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_printerValue = 3;
  start(L"Preview PDF");
  write("plain text");
  end();
  ASSERT_EQ(told().size(), 1u);
  EXPECT_EQ(values()[4], "result=failed");
  EXPECT_THAT(values()[7], testing::StartsWith("cause=Failed to launch notepad: notepad.exe "));
  EXPECT_EQ(values()[8],
            "remedy=See in the log of aps why the program did not start in the session, then print again.");
}

TEST_F(JobEndTest, AJobThatTheSpoolerGaveUpIsToldWithItsOwnNumber) {
  start(L"Laser");
  start(L"Ink", 18);
  expectFailure(
      "The spooler began another job before this one had ended. Print the document again if it is still "
      "wanted.");
  end();
  EXPECT_EQ(told().back(), "Job 18 \"letter.txt\" on \"Ink\" (session 5) was delivered: 0 bytes.");
}

TEST_F(JobEndTest, ANameWithALineEndStaysInOneLineAndAPortWithoutANumberHasNoSession) {
  m_document.pDocName = text(L"two\r\nlines\x1F.");
  start();
  wcscpy(m_port->portName, L"LPT1");
  end();
  EXPECT_THAT(told(), ElementsAre("Job 17 \"two  lines?.\" on \"Laser\" was delivered: 0 bytes."));
  EXPECT_EQ(values()[2], "document=two\r\nlines\x1F.");
  EXPECT_EQ(values()[5], "session=");
}

TEST_F(JobEndTest, AJobWithoutAStreamIsToldAllTheSame) {
  tagPort port;
  wcscpy(port.portName, L"CPP5");
  wcscpy(port.printerName, L"Laser");
  port.jobId = 17;
  ClientPrintJob job;
  job.documentName = L"letter.txt";
  job.report.fail(JobFault::kModule, L"There is not enough memory.");
  port.job = &job;
  for (int time = 0; time < 2; ++time)
    mg::tellFailedJob(port);
  expectFailure("There is not enough memory. Restart the print spooler, then print again.");
  EXPECT_TRUE(job.report.isTold);
}

TEST_F(JobEndTest, AFailedStartWithoutADocumentIsToldWithoutAName) {
  mg::tellFailedStart(*m_port, L"Laser", 17, nullptr, nullptr, nullptr);
  expectFailure("There is not enough memory. Restart the print spooler, then print again.", "Job 17 \"\" on \"Laser\"");
  EXPECT_EQ(values()[2], "document=");
}

TEST_F(JobEndTest, DataThatArrivedBrokenAreTheConnectionsFault) {
  m_endResult = -5;
  start();
  end();
  expectFailure(std::string("The print client got a piece of data that was not as long as it said.") + kRunning);
}

TEST_F(JobEndTest, ADocumentWithoutANameIsToldWithoutOne) {
  m_document.pDocName = nullptr;
  refuseAttach();
  start();
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), testing::StartsWith("Job 17 \"\" on \"Laser\" (session 5) failed: "));
  EXPECT_EQ(values()[2], "document=");
}

TEST_F(JobEndTest, ASessionIsNamedWithAllItsDigits) {
  start();
  wcscpy(m_port->portName, L"CPP1029384756");
  end();
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 1029384756) was delivered: 0 bytes."));
}

TEST_F(JobEndTest, APortWhoseNameGoesOnBehindItsNumberHasNoSession) {
  start();
  wcscpy(m_port->portName, L"CPP5 copy");
  end();
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" was delivered: 0 bytes."));
}

}  // namespace
