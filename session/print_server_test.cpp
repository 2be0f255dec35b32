#include "session/print_server.h"

#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"

#include <winsock2.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"ws2_32.dll", WSASend, SOCKET_ERROR)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PrintServerTest : public testing::Test {
 protected:
  PrintServerTest() {
    m_job.jobName = L"Laser-2 - Job #17";
    m_job.settings = {1, 2, 3, 1};
    m_world.peer().answer("PrintClient", 3, [](corvane::ValueWriter& reply) { reply.writeInt(7); });
  }

  // Requests without a reply have arrived once the end of the job is answered.
  ScriptedPeer::Lines requests() {
    m_stream->EndJob(&m_job);
    ScriptedPeer::Lines requests = m_world.requests();
    requests.pop_back();
    return requests;
  }

  // Bytes of which no chunk is like another.
  std::vector<unsigned char> makeFinalData(int length) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(length));
    std::generate(bytes.begin(), bytes.end(), [state = 1u]() mutable {
      state = state * 1664525u + 1013904223u;
      return static_cast<unsigned char>(state >> 24);
    });
    m_job.finalData = new unsigned char[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), m_job.finalData);
    m_job.finalDataLength = length;
    return bytes;
  }

  ImportSeams m_seams;
  MonitorWorld m_world;
  CS_RCPtr<PrintServer> m_stream = m_world.printServer();
  ClientPrintJob m_job;
};

TEST_F(PrintServerTest, StartJobSendsNamesSettingsAndCopiesInOrder) {
  m_job.clientPrinterName = L"Laser";
  m_job.documentName = L"letter.txt";
  m_job.dataType = L"RAW";
  m_job.copies = 2;
  m_stream->StartJob(&m_job);
  EXPECT_THAT(requests(),
              ElementsAre("one-way 1 StartJob: boolean true, text \"Laser-2 - Job #17\", boolean true, text \"Laser\", "
                          "boolean true, text \"letter.txt\", boolean true, text \"RAW\", int 1, int 2, int 3, int 1, "
                          "int 2"));
}

TEST_F(PrintServerTest, StartJobSendsEmptyTextsAsAbsent) {
  m_job.jobName = L"";
  m_stream->StartJob(&m_job);
  EXPECT_THAT(requests(), ElementsAre("one-way 1 StartJob: boolean false, boolean false, boolean false, boolean false, "
                                      "int 1, int 2, int 3, int 1, int 0"));
}

TEST_F(PrintServerTest, StartJobOnADeadConnectionEndsSilently) {
  CS_Connection::destroy(&m_world.connection(), true);
  m_stream->StartJob(&m_job);
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(PrintServerTest, DirectDataLeaveAsOneRequestOfTheirOwnSize) {
  const unsigned char data[] = {1, 2, 3, 4, 5};
  for (const int mode : {1, 3}) {
    m_job.settings[3] = mode;
    EXPECT_EQ(m_stream->WriteJob(&m_job, data, 5), 1);
  }
  const std::string line = "one-way 2 WriteJob: boolean true, text \"Laser-2 - Job #17\", int 5, bytes 5";
  EXPECT_THAT(requests(), ElementsAre(line, line));
  EXPECT_THAT(m_world.peer().bytes(), ElementsAre(1, 2, 3, 4, 5, 1, 2, 3, 4, 5));
}

TEST_F(PrintServerTest, DirectDataLargerThanAFrameArriveAsOneBlock) {
  const std::vector<unsigned char> data(300000, 0x5A);
  EXPECT_EQ(m_stream->WriteJob(&m_job, data.data(), 300000), 1);
  EXPECT_THAT(requests(), ElementsAre("one-way 2 WriteJob: boolean true, text \"Laser-2 - Job #17\", int 300000, "
                                      "bytes 300000"));
  EXPECT_EQ(m_world.peer().bytes(), data);
}

TEST_F(PrintServerTest, DirectWriteOfNothingSendsALengthOfZeroAndNoBytes) {
  m_job.jobName = L"";
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_THAT(requests(), ElementsAre("one-way 2 WriteJob: boolean false, int 0"));
}

TEST_F(PrintServerTest, DirectWriteAllocatesNothing) {
  const std::vector<unsigned char> data(32768, 1);
  m_stream->WriteJob(&m_job, data.data(), 32768);  // announces the component
  const FailingNew failing(1);
  EXPECT_EQ(m_stream->WriteJob(&m_job, data.data(), 32768), 1);
  EXPECT_FALSE(failing.hasFailed());
}

TEST_F(PrintServerTest, DirectWriteIsOneSendThatRefersToTheCallersBuffer) {
  const std::vector<unsigned char> data(32768, 1);
  m_stream->WriteJob(&m_job, data.data(), 32768);  // announces the component
  int sends = 0;
  bool refers = false;
  WSASendSeam.watch = [&](SOCKET, LPWSABUF buffers, DWORD count, LPDWORD, DWORD, LPWSAOVERLAPPED,
                          LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
    ++sends;
    for (DWORD i = 0; i < count; ++i) {
      refers = refers || reinterpret_cast<unsigned char*>(buffers[i].buf) == data.data();
    }
  };
  EXPECT_EQ(m_stream->WriteJob(&m_job, data.data(), 32768), 1);
  WSASendSeam.restore();
  EXPECT_EQ(sends, 1);
  EXPECT_TRUE(refers);
}

TEST_F(PrintServerTest, FinalDataLeaveInChunksOf32768Bytes) {
  m_job.settings[3] = 2;
  const std::vector<unsigned char> data = makeFinalData(70000);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_EQ(m_job.bytesSent, 70000);
  const std::string name = "one-way 2 WriteJob: boolean true, text \"Laser-2 - Job #17\", ";
  EXPECT_THAT(requests(), ElementsAre(name + "int 32768, bytes 32768", name + "int 32768, bytes 32768",
                                      name + "int 4464, bytes 4464"));
  EXPECT_EQ(m_world.peer().bytes(), data);
}

TEST_F(PrintServerTest, BytesSentHaveCountedAChunkWhenItIsSentAlsoOneWhoseSendFails) {
  m_job.settings[3] = 2;
  makeFinalData(70000);
  std::vector<int> counted;
  WSASendSeam.watch = [&](SOCKET, LPWSABUF, DWORD, LPDWORD, DWORD, LPWSAOVERLAPPED,
                          LPWSAOVERLAPPED_COMPLETION_ROUTINE) { counted.push_back(m_job.bytesSent); };
  WSASendSeam.fail(2, SOCKET_ERROR, WSAECONNRESET);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 0);
  WSASendSeam.restore();
  EXPECT_THAT(counted, ElementsAre(32768, 65536));
  EXPECT_EQ(m_job.bytesSent, 65536);
}

TEST_F(PrintServerTest, FinalDataOfOneChunkLeaveAsOneRequest) {
  m_job.settings[3] = 2;
  makeFinalData(32768);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_THAT(requests(), ElementsAre("one-way 2 WriteJob: boolean true, text \"Laser-2 - Job #17\", int 32768, "
                                      "bytes 32768"));
}

TEST_F(PrintServerTest, AFinalLengthBelowZeroSendsNothing) {
  m_job.settings[3] = 2;
  m_job.finalDataLength = -1;
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PrintServerTest, DirectWriteOfALengthBelowZeroSendsTheLengthAndNoBytes) {
  const unsigned char data[] = {1};
  EXPECT_EQ(m_stream->WriteJob(&m_job, data, -1), 1);
  EXPECT_THAT(requests(), ElementsAre("one-way 2 WriteJob: boolean true, text \"Laser-2 - Job #17\", int -1"));
}

TEST_F(PrintServerTest, NamesOfAnyLengthAndCharacterTravelAsTheyAre) {
  const std::wstring odd = L"\xD800\u4e2d" + std::wstring(300, L'n');
  m_job.jobName = L"";
  m_job.documentName = odd.c_str();
  m_stream->StartJob(&m_job);
  EXPECT_THAT(requests(), ElementsAre("one-way 1 StartJob: boolean false, boolean false, boolean true, text \"" +
                                      corvane::toUtf8(odd) + "\", boolean false, int 1, int 2, int 3, int 1, int 0"));
}

TEST_F(PrintServerTest, EveryFlushSendsTheFinalDataFromTheirStart) {
  m_job.settings[3] = 2;
  m_job.jobName = L"";
  std::vector<unsigned char> twice = makeFinalData(32769);
  twice.insert(twice.end(), twice.begin(), twice.begin() + 32769);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  const std::string whole = "one-way 2 WriteJob: boolean false, int 32768, bytes 32768";
  const std::string rest = "one-way 2 WriteJob: boolean false, int 1, bytes 1";
  EXPECT_THAT(requests(), ElementsAre(whole, rest, whole, rest));
  EXPECT_EQ(m_world.peer().bytes(), twice);
}

TEST_F(PrintServerTest, FlushWithoutFinalDataSendsNothing) {
  m_job.settings[3] = 2;
  m_job.bytesSent = 5;
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 1);
  EXPECT_EQ(m_job.bytesSent, 0);
  EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PrintServerTest, WritingToADeadConnectionFailsSilently) {
  CS_Connection::destroy(&m_world.connection(), true);
  const unsigned char data[] = {1};
  EXPECT_EQ(m_stream->WriteJob(&m_job, data, 1), 0);
  m_job.settings[3] = 2;
  makeFinalData(1);
  EXPECT_EQ(m_stream->WriteJob(&m_job, nullptr, 0), 0);
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(PrintServerTest, EndJobAnswersWithTheClientsResult) {
  EXPECT_EQ(m_stream->EndJob(&m_job), 7);
  m_world.peer().answer("PrintClient", 3, [](corvane::ValueWriter& reply) { reply.writeInt(-3); });
  m_job.jobName = L"";
  EXPECT_EQ(m_stream->EndJob(&m_job), -3);
  EXPECT_THAT(m_world.requests(), ElementsAre("request 3 EndJob: boolean true, text \"Laser-2 - Job #17\"",
                                              "request 3 EndJob: boolean false"));
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(PrintServerTest, EndJobWithoutAnAnswerRecordsWhyAndAnswersZero) {
  m_world.peer().hangUpAt("PrintClient", 3);
  EXPECT_EQ(m_stream->EndJob(&m_job), 0);
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("10: number 3102", "0x40000008: Stack Trace: PrintServer::EndJob()"));
  EXPECT_EQ(m_world.records().reports(), 1);
}

TEST_F(PrintServerTest, EndJobWithoutMemoryRecordsAnUnknownException) {
  const FailingNew failing(1);
  EXPECT_EQ(m_stream->EndJob(&m_job), 0);
  EXPECT_TRUE(failing.hasFailed());
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("10: number 3012", "0x40000008: Stack Trace: PrintServer::EndJob()"));
}

TEST_F(PrintServerTest, NothingIsDoneForNoJob) {
  m_stream->StartJob(nullptr);
  const unsigned char data[] = {1};
  EXPECT_EQ(m_stream->WriteJob(nullptr, data, 1), 0);
  EXPECT_EQ(m_stream->EndJob(nullptr), 0);
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

}  // namespace
