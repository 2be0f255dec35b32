#include "tests/support/local_log.h"
#include "tests/support/monitor/job_path.h"
#include "tests/support/temporary_folder.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EndDocPortTest : public JobPath {
 protected:
  std::size_t count(const std::string& beginning) const {
    std::size_t found = 0;
    for (const std::string& line : m_peer.lines())
      found += line.rfind(beginning, 0) == 0 ? 1 : 0;
    return found;
  }
};

TEST_F(EndDocPortTest, MarksTheJobAsSentAndClearsThePort) {
  start();
  m_queue.clear();
  wcscpy(m_port->secondName, L"something");
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser 0xf000c", "set job 17 level 0 command 6", "close printer"));
  EXPECT_EQ(m_port->job, nullptr);
  EXPECT_STREQ(m_port->secondName, L"");
  EXPECT_EQ(m_port->flags, kPortIsOpen);
  EXPECT_EQ(m_port->jobId, 17u);
  EXPECT_TRUE(m_port->printServer);
  EXPECT_FALSE(m_port->printServer->isConnected());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(EndDocPortTest, TheClientsResultDecides) {
  for (const int result : {0, -1}) {
    m_endResult = result;
    start();
    EXPECT_EQ(end(), FALSE);
  }
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(EndDocPortTest, AQueueThatRefusesIsNotedAndTheResultStays) {
  start();
  m_queue.clear();
  m_queue.refuseOpen();
  m_queue.refuseSetJob();
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(records(), ElementsAre("0x4000000c: failed to access the printer queue",
                                     "0x4000000c: failed to complete print job", closing("MGEndDocPort")));
  EXPECT_THAT(m_queue.calls(),
              ElementsAre("open Laser 0xf000c", "set job 17 level 0 command 6 of no printer", "close printer null"));
}

TEST_F(EndDocPortTest, ALostClientIsNotReportedAsPrinted) {
  m_peer.hangUpAt("PrintClient", 3);
  start();
  EXPECT_EQ(end(), FALSE);
  EXPECT_THAT(records(), ElementsAre("10: number 3102", "0x40000008: Stack Trace: PrintServer::EndJob()"));
  EXPECT_EQ(m_port->job, nullptr);
}

TEST_F(EndDocPortTest, BadHandlesAreRecordedAndANullPrinterIsClosed) {
  EXPECT_EQ(MGEndDocPort(nullptr), FALSE);
  EXPECT_EQ(MGEndDocPort(INVALID_HANDLE_VALUE), FALSE);
  const std::string line = closing("MGEndDocPort");
  EXPECT_THAT(records(), ElementsAre("10: number 3015", line, "10: number 3015", line));
  EXPECT_THAT(m_queue.calls(), ElementsAre("close printer null", "close printer null"));
}

TEST_F(EndDocPortTest, APortWithoutAStreamOrWithoutAJobIsAMissingObject) {
  EXPECT_EQ(end(), FALSE);
  start();
  end();
  EXPECT_EQ(end(), FALSE);
  const std::string line = closing("MGEndDocPort");
  EXPECT_THAT(records(), ElementsAre("10: number 3014", line, "10: number 3014", line));
}

TEST_F(EndDocPortTest, ACollectedJobIsSentInChunksOnceItIsConverted) {
  // Plain text for a printer that is no preview is sent as it is; the converter's own way is tested with the jobs.
  m_printerValue = 3;
  start();
  const std::wstring collected = m_port->job->postScriptPath.wide();
  const std::string bytes(70000, 'x');
  EXPECT_EQ(write(bytes), TRUE);
  EXPECT_EQ(m_written, 70000u);
  EXPECT_EQ(count("one-way 2 WriteJob"), 0u);
  EXPECT_EQ(TemporaryFolder::read(collected), bytes);
  EXPECT_EQ(end(), TRUE);
  const std::string name = "one-way 2 WriteJob: boolean true, text \"Laser - Job #17\", ";
  EXPECT_EQ(count(name + "int 32768, bytes 32768"), 2u);
  EXPECT_EQ(count(name + "int 4464, bytes 4464"), 1u);
  EXPECT_EQ(m_peer.bytes().size(), 70000u);
  EXPECT_FALSE(TemporaryFolder::exists(collected));
}

TEST_F(EndDocPortTest, AJobThatWentToNotepadIsMarkedAsSentAndAnsweredWithFalse) {
  m_world.bringUpInstance();
  m_peer.answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  m_printerValue = 3;
  start(L"Preview PDF");
  write("plain text");
  m_queue.clear();
  EXPECT_EQ(end(), FALSE);
  EXPECT_EQ(count("request 7 LaunchApplication: text \"notepad.exe\""), 1u);
  EXPECT_EQ(count("2| one-way 2 WriteJob"), 0u);
  EXPECT_EQ(count("2| request 3 EndJob"), 0u);
  EXPECT_THAT(m_queue.calls(),
              ElementsAre("open Preview PDF 0xf000c", "set job 17 level 0 command 6", "close printer"));
  EXPECT_EQ(m_port->job, nullptr);
}

// To a preview printer, a conversion of plain text would start notepad instead of ending the job.
TEST_F(EndDocPortTest, AJobThatIsNotToBeConvertedIsOnlyEnded) {
  m_world.bringUpInstance();
  for (const std::int32_t mode : {1, 3}) {
    m_peer.clear();
    start(L"Preview PDF");
    m_port->job->settings[protocol::kDeliverySetting] = mode;
    write("plain text");
    LocalLog log;
    log.trace();
    EXPECT_EQ(end(), TRUE);
    EXPECT_THAT(log.entered(), ElementsAre("MGEndDocPort ()", "PrintServer::EndJob()", "PortMonitorServer::release()"));
    const auto lines = m_peer.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("EndJob") != std::string::npos; }),
              1);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("LaunchApp") != std::string::npos; }),
              0);
    EXPECT_EQ(m_peer.bytes().size(), 10u);
  }
  EXPECT_THAT(records(), IsEmpty());
}

}  // namespace
