#include "tests/support/local_log.h"
#include "tests/support/monitor/job_path.h"

#include <gmock/gmock.h>

// In which order the entries of a job act on the queue, write their records and end the connection.
namespace {

using testing::ElementsAre;

// Writes each record between the calls of the queue, with what has become of the job's connection by then.
class RecordsAmongCalls : public RecordingMonitor {
 public:
  explicit RecordsAmongCalls(FakeQueue& queue) : m_queue(queue) {}
  void watch(const CS_RCPtr<CS_Component>& component) { m_component = component; }

 protected:
  void write(const CS_Record& record) noexcept override {
    const std::string state = !m_component ? "" : m_component->isConnected() ? " [connected]" : " [ended]";
    m_queue.note(corvane::toUtf8(record.text) + state);
  }

 private:
  FakeQueue& m_queue;
  CS_RCPtr<CS_Component> m_component;
};

// Lets a test hold the port monitor component that a job makes on its own connection.
class KeptPortMonitor : public PortMonitorServerClass {
 public:
  KeptPortMonitor(RecordsAmongCalls& records) : PortMonitorServerClass(CS_Version(4, 0, 1, 0)), m_records(records) {}
  CS_Component* createInstance() override {
    CS_Component* made = PortMonitorServerClass::createInstance();
    m_records.watch(made);
    return made;
  }

 private:
  RecordsAmongCalls& m_records;
};

// Makes streams that write down when somebody asks them for their connection.
class AskedStreams : public PrintServerClass {
 public:
  explicit AskedStreams(FakeQueue& queue) : PrintServerClass(CS_Version(4, 0, 1, 0)), m_queue(queue) {}
  CS_Component* createInstance() override {
    class Asked : public PrintServer {
     public:
      explicit Asked(FakeQueue& queue) : m_queue(queue) {}
      CS_RCPtr<CS_Component> getRootOwner() override {
        m_queue.note("the stream's connection");
        return PrintServer::getRootOwner();
      }

     private:
      FakeQueue& m_queue;
    };
    return new Asked(m_queue);
  }

 private:
  FakeQueue& m_queue;
};

class JobOrderTest : public JobPath {
 protected:
  JobOrderTest() { CS_ProgramMonitor::setDefaultMonitor(m_records); }
  ~JobOrderTest() override { CS_ProgramMonitor::setDefaultMonitor(&m_world.records().monitor()); }

  CS_RCPtr<RecordsAmongCalls> m_records = new RecordsAmongCalls(m_queue);
};

TEST_F(JobOrderTest, AFailedStartDeletesTheJobClosesItsReportAndThenItsConnection) {
  constexpr wchar_t kClass[] = L"Quillfern::NTR::PortMonitorServer";
  CS_ComponentServer::getServer()->registerClass(kClass, new KeptPortMonitor(*m_records));
  m_peer.answer("PortMonitorClient", 5, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_peer.whenAsked("PortMonitorClient", 5, [this] { m_queue.note("request 5"); });
  EXPECT_EQ(start(), FALSE);
  const std::string failure = "Failed to get the printer's information: Laser, print job #17 has failed to print.";
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser", "job 17 level 2", "close printer", "request 5",
                                           "Failed to get printer info [connected]",
                                           "Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterInfo() [connected]",
                                           failure + " [connected]", failure + " [connected]", "open Laser 0xf000c",
                                           "set job 17 level 0 command 5", "Deleted print job letter.txt [connected]",
                                           "close handle", "Stack Trace: MgPrintMon - MGStartDocPort() [connected]"));
  m_queue.clear();
  m_records->recordText(10, corvane::kCategory, L"afterwards");
  EXPECT_THAT(m_queue.calls(), ElementsAre("afterwards [ended]"));
  CS_ComponentServer::getServer()->registerClass(kClass, new PortMonitorServerClass(CS_Version(4, 0, 1, 0)));
}

TEST_F(JobOrderTest, AFailedWriteDeletesTheJobAndThenClosesItsReport) {
  start();
  m_queue.clear();
  m_port->job->dataLost = true;
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("Failed to send print job data", "Failed to send print job data",
                                           "open Laser 0xf000c", "set job 17 level 0 command 5", "Deleted print job",
                                           "close handle", "Stack Trace: MgPrintMon - MGWritePort()"));
}

// What the queue refuses is not part of the report on the failure: it begins one of its own, which the rest joins.
TEST_F(JobOrderTest, AQueueThatCannotBeOpenedBeginsAReportOfItsOwn) {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  const LocalLog log;
  m_peer.answer("PortMonitorClient", 5, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_queue.refuseOpen();
  EXPECT_EQ(start(), FALSE);
  std::vector<std::string> reports;
  for (const std::string& line : log.lines()) {
    if (line[0] == '#') reports.push_back(line.substr(0, line.find(' ')));
  }
  ASSERT_EQ(reports.size(), 7u);
  EXPECT_EQ(reports[2], reports[3]) << "the failure and its exception";
  EXPECT_NE(reports[3], reports[4]);
  EXPECT_EQ(reports[4], reports[5]);
  EXPECT_EQ(reports[5], reports[6]);
  EXPECT_EQ(log.records()[4], "clean-up: Failed to open the printer");
}

TEST_F(JobOrderTest, WhatIsDoneAboutAFailedWriteBelongsToItsReport) {
  start();
  const CS_RCPtr<CS_Component> owner = m_port->printServer->getRootOwner();
  CS_Connection::destroy(CS_RCPtr<CS_Connection>(dynamic_cast<CS_Connection*>(owner.get())), true);
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  const LocalLog log;
  EXPECT_EQ(write("abc"), FALSE);
  std::vector<std::string> reports;
  for (const std::string& line : log.lines()) {
    if (line[0] == '#') reports.push_back(line.substr(0, line.find(' ')));
  }
  ASSERT_EQ(reports.size(), 4u);
  EXPECT_EQ(reports, std::vector<std::string>(4, reports[0]));
  EXPECT_EQ(log.records()[2], "clean-up: Deleted print job");
}

TEST_F(JobOrderTest, AnEndMarksTheJobEndsTheConnectionClosesItsReportAndThenThePrinter) {
  start();
  m_queue.clear();
  m_queue.refuseSetJob();
  m_records->watch(m_port->printServer.get());
  m_peer.whenAsked("PrintClient", 3, [this] { m_queue.note("request 3"); });
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("request 3", "open Laser 0xf000c", "set job 17 level 0 command 6",
                                           "failed to complete print job [connected]",
                                           "Stack Trace: MgPrintMon - MGEndDocPort() [ended]", "close printer"));
}

TEST_F(JobOrderTest, WhatTheQueueRefusesAtTheEndIsOneReport) {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  start();
  const LocalLog log;
  m_queue.refuseOpen();
  m_queue.refuseSetJob();
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(log.records(),
              ElementsAre("clean-up: failed to access the printer queue", "clean-up: failed to complete print job",
                          "trace: Stack Trace: MgPrintMon - MGEndDocPort()"));
  EXPECT_EQ(log.reports().size(), 1u);
}

// Afterwards the stream may have been let go of.
TEST_F(JobOrderTest, AnEndAsksForTheConnectionBeforeItEndsTheStream) {
  constexpr wchar_t kClass[] = L"Quillfern::NTR::PrintServer";
  CS_ComponentServer::getServer()->registerClass(kClass, new AskedStreams(m_queue));
  start();
  m_queue.clear();
  m_peer.whenAsked("PrintClient", 3, [this] { m_queue.note("request 3"); });
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("the stream's connection", "request 3", "open Laser 0xf000c",
                                           "set job 17 level 0 command 6", "close printer"));
  CS_ComponentServer::getServer()->registerClass(kClass, new PrintServerClass(CS_Version(4, 0, 1, 0)));
}

TEST_F(JobOrderTest, AQueueThatCannotBeOpenedIsNotedBeforeTheJobIsMarked) {
  start();
  m_queue.clear();
  m_queue.refuseOpen();
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser 0xf000c", "failed to access the printer queue",
                                           "set job 17 level 0 command 6 of no printer",
                                           "Stack Trace: MgPrintMon - MGEndDocPort()", "close printer null"));
}

// The settings are there before the job is attached, and the job hangs on its port before the server is asked.
TEST_F(JobOrderTest, TheJobIsSettledBeforeItIsAttachedToItsSession) {
  m_queue.setCopies(3);
  m_printerValue = 2;
  m_peer.whenAsked("PortMonitorClient", 5, [this] {
    m_queue.note(corvane::toUtf8(m_port->job->documentName.wide()));
    m_queue.note(std::to_string(m_port->job->copies) + " copies, setting " + std::to_string(m_port->job->settings[1]));
    m_queue.note(m_port->printServer ? "a stream" : "no stream");
  });
  m_peer.whenAsked("PortMonitorClient", 4,
                   [this] { m_queue.note("setting " + std::to_string(m_port->job->settings[1])); });
  EXPECT_EQ(start(), TRUE);
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser", "job 17 level 2", "close printer", "letter.txt",
                                           "3 copies, setting 0", "no stream", "setting 2"));
}

}  // namespace
