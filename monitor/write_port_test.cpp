#include "tests/support/failing_new.h"
#include "tests/support/monitor/job_path.h"
#include "tests/support/monitor/send_seam.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WritePortTest : public JobPath {
 protected:
  void breakConnection() {
    const CS_RCPtr<CS_Component> owner = m_port->printServer->getRootOwner();
    CS_Connection::destroy(CS_RCPtr<CS_Connection>(dynamic_cast<CS_Connection*>(owner.get())), true);
  }
};

TEST_F(WritePortTest, EveryWriteGoesOutWholeAndAtOnce) {
  start();
  EXPECT_EQ(write("abc"), TRUE);
  EXPECT_EQ(m_written, 3u);
  EXPECT_EQ(write(std::string(70000, 'x')), TRUE);
  EXPECT_EQ(m_written, 70000u);
  EXPECT_EQ(end(), TRUE);
  const ScriptedPeer::Lines lines = m_peer.lines();
  ASSERT_GE(lines.size(), 10u);
  EXPECT_EQ(lines[7], "one-way 2 WriteJob: boolean true, text \"Laser - Job #17\", int 3, bytes 3");
  EXPECT_EQ(lines[8], "one-way 2 WriteJob: boolean true, text \"Laser - Job #17\", int 70000, bytes 70000");
  EXPECT_EQ(lines[9], "request 3 EndJob: boolean true, text \"Laser - Job #17\"");
  EXPECT_EQ(m_peer.bytes().size(), 70003u);
}

TEST_F(WritePortTest, AWriteBehindTheFirstIsOneSendAndAllocatesNothing) {
  start();
  int sends = 0;
  send_seam::watch([&] { ++sends; });
  for (const std::size_t size : {1u, 4096u, 32768u, 65536u}) {
    const std::string data(size, 'x');
    ASSERT_EQ(write(data), TRUE);  // the first one announces the stream
    sends = 0;
    const FailingNew failing(1);
    ASSERT_EQ(write(data), TRUE);
    EXPECT_FALSE(failing.hasFailed()) << size;
    EXPECT_EQ(sends, 1) << size;
  }
  EXPECT_EQ(end(), TRUE);
}

TEST_F(WritePortTest, BadArgumentsWriteNothingAndLeaveTheQueue) {
  start();
  m_queue.clear();
  BYTE byte = 1;
  for (const HANDLE handle : {HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
    m_written = 99;
    EXPECT_EQ(MGWritePort(handle, &byte, 1, &m_written), FALSE);
    EXPECT_EQ(m_written, 0u);
  }
  m_written = 99;
  EXPECT_EQ(MGWritePort(m_port, nullptr, 1, &m_written), FALSE);
  EXPECT_EQ(m_written, 0u);
  m_written = 99;
  EXPECT_EQ(MGWritePort(m_port, &byte, 0, &m_written), FALSE);
  EXPECT_EQ(m_written, 0u);
  const std::string bad = "10: number 3015";
  const std::string line = closing("MGWritePort");
  EXPECT_THAT(records(), ElementsAre(bad, line, bad, line, bad, line, bad, line));
  EXPECT_THAT(m_queue.calls(), IsEmpty());
}

TEST_F(WritePortTest, APortWithoutAStreamIsAMissingObject) {
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_EQ(m_written, 0u);
  EXPECT_THAT(records(), ElementsAre("10: number 3014", closing("MGWritePort")));
  EXPECT_THAT(m_queue.calls(), IsEmpty());
}

TEST_F(WritePortTest, TheArgumentsAreLookedAtBeforeTheStream) {
  BYTE byte = 1;
  EXPECT_EQ(MGWritePort(m_port, nullptr, 1, &m_written), FALSE);
  EXPECT_EQ(MGWritePort(m_port, &byte, 0, &m_written), FALSE);
  const std::string line = closing("MGWritePort");
  EXPECT_THAT(records(), ElementsAre("10: number 3015", line, "10: number 3015", line));
}

TEST_F(WritePortTest, AJobWithoutItsStreamStaysInTheQueue) {
  start();
  m_queue.clear();
  const CS_RCPtr<PrintServer> stream(m_port->printServer.get());
  const auto references = [&stream] {
    stream->addRef();
    return stream->removeRef();
  };
  const int before = references();
  m_port->printServer = nullptr;
  EXPECT_EQ(references(), before - 1);
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_THAT(records(), ElementsAre("10: number 3014", closing("MGWritePort")));
  EXPECT_THAT(m_queue.calls(), IsEmpty());
  m_port->printServer = stream;
}

TEST_F(WritePortTest, MoreThanALengthCanTellIsABadArgument) {
  start();
  BYTE byte = 1;
  EXPECT_EQ(MGWritePort(m_port, &byte, 0x80000000, &m_written), FALSE);
  EXPECT_EQ(m_written, 0u);
  EXPECT_THAT(records(), ElementsAre("10: number 3015", closing("MGWritePort")));
}

TEST_F(WritePortTest, ACallerNeedNotAskHowMuchWasWritten) {
  start();
  BYTE byte = 1;
  EXPECT_EQ(MGWritePort(m_port, &byte, 1, nullptr), TRUE);
  EXPECT_EQ(MGWritePort(nullptr, &byte, 1, nullptr), FALSE);
}

TEST_F(WritePortTest, AFailedWriteDeletesTheJobFromTheQueueAndKeepsItOnThePort) {
  start();
  m_queue.clear();
  breakConnection();
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_EQ(m_written, 0u);
  EXPECT_THAT(records(), ElementsAre("0x4000000a: Failed to send print job data", "10: Failed to send print job data",
                                     "0x4000000c: Deleted print job", closing("MGWritePort")));
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser 0xf000c", "set job 17 level 0 command 5", "close handle"));
  ASSERT_NE(m_port->job, nullptr);
  EXPECT_STREQ(m_port->job->documentName.wide(), L"letter.txt");
  EXPECT_TRUE(m_port->printServer);
  EXPECT_EQ(m_port->flags, kPortIsOpen | kPortHasDocument);
}

TEST_F(WritePortTest, AFailedWriteNotesWhatTheQueueRefuses) {
  start();
  m_queue.refuseOpen();
  m_queue.refuseSetJob();
  breakConnection();
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_THAT(records(), ElementsAre("0x4000000a: Failed to send print job data", "10: Failed to send print job data",
                                     "0x4000000c: Failed to open the printer", "0x4000000c: Failed to delete print job",
                                     closing("MGWritePort")));
}

TEST_F(WritePortTest, AWriteAfterTheEndFindsTheStaleStreamAndNoJob) {
  start();
  end();
  m_queue.clear();
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_THAT(records(), ElementsAre("0x4000000a: Failed to send print job data", "10: Failed to send print job data",
                                     closing("MGWritePort")));
  EXPECT_THAT(m_queue.calls(), IsEmpty());
}

}  // namespace
