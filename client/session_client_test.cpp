#include "client/session_client.h"

#include "corvane/base/process.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "programs/text.h"
#include "protocol/names.h"
#include "tests/support/connection_pair.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace printclient {
namespace {

namespace fs = std::filesystem;

class SessionClientTest : public ::testing::Test {
 protected:
  SessionClientTest() {
    m_lines = std::fopen(programs::fromPath(m_file).c_str(), "wb");
    m_reporter = std::make_unique<Reporter>(m_lines, false);
    m_output = std::make_shared<JobOutput>(fs::temp_directory_path(), 5, 42, *m_reporter, nullptr);
    m_pair = std::make_unique<ConnectionPair>();
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(
        protocol::kSessionClientClass,
        new corvane::ComponentClass<SessionClient, SessionClient::Context>(protocol::kVersion, m_output));
    server->offerClass(protocol::kSessionClientClass);
    server->registerClass(protocol::kSessionHostClass, new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    m_host = makeComponent(m_pair->dialed(), protocol::kSessionHostClass, protocol::kSessionClientClass);
  }
  ~SessionClientTest() override {
    m_host = nullptr;
    m_pair.reset();
    m_reporter.reset();
    std::fclose(m_lines);
    std::error_code ignored;
    fs::remove(m_file, ignored);
  }

  void tell(const std::vector<std::wstring>& texts, int number = 21) {
    CS_OutRequest request(m_host, number);
    for (const std::wstring& text : texts)
      request.writeUTF(text.c_str());
    request.execute();
  }
  // What the client has said when the connection has ended.
  std::string lines() {
    CS_Connection::destroy(m_pair->dialedPointer(), true);
    m_pair->join();
    m_reporter->flush();
    std::ifstream in(m_file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const fs::path m_file = fs::temp_directory_path() / ("session_client_" + std::to_string(corvane::processId()));
  std::FILE* m_lines = nullptr;
  std::unique_ptr<Reporter> m_reporter;
  std::shared_ptr<JobOutput> m_output;
  std::unique_ptr<ConnectionPair> m_pair;
  CS_RCPtr<CS_Component> m_host;
};

TEST_F(SessionClientTest, SaysWhyAJobWasNotPrintedAndWhatToDo) {
  tell({L"Laser-2", L"letter", L"Ghostscript: undefined in bar", L"Mend the document."});
  tell({L"Laser-2", L"letter", L"The port was deleted.", L"Print again."});
  EXPECT_EQ(lines(),
            "the server says why \"letter\" for \"Laser-2\" was not printed: Ghostscript: undefined in bar. Mend the "
            "document.\n"
            "the server says why \"letter\" for \"Laser-2\" was not printed: The port was deleted. Print again.\n");
}

TEST_F(SessionClientTest, PutsTheServersWordsOnTheBoard) {
  tell({L"Laser-2", L"letter", L"Ghostscript: undefined in bar", L"Mend the document."});
  lines();
  const BoardJob shown = m_output->board().newerThan(0).jobs.at(0);
  EXPECT_EQ(shown.stage, JobStage::kFailed);
  EXPECT_EQ(shown.title, "letter");
  EXPECT_EQ(shown.printer, "Laser-2");
  EXPECT_EQ(shown.cause, "Ghostscript: undefined in bar");
  EXPECT_EQ(shown.remedy, "Mend the document.");
}

TEST_F(SessionClientTest, DoesNotRepeatWhatTheJobsOwnLineHasSaid) {
  tell({L"Laser-2", L"letter", L"The print client did not take the document.", L"See its output."});
  EXPECT_EQ(lines(), "");
}

TEST_F(SessionClientTest, SaysItOfAJobWhoseDocumentTheServerDoesNotKnow) {
  tell({L"Laser-2", L"", L"gone", L"Print again."});
  EXPECT_EQ(lines(), "the server says why a job for \"Laser-2\" was not printed: gone. Print again.\n");
}

TEST_F(SessionClientTest, SaysWhichPrinterTheServerCannotHave) {
  tell({L"Laser-2", L"printer cannot be added: The name is invalid (123)", L"Rename it."}, 22);
  EXPECT_EQ(
      lines(),
      "\"Laser-2\" is not a printer on the server: printer cannot be added: The name is invalid (123). Rename it.\n");
}

TEST_F(SessionClientTest, LetsNobodySteerTheTerminal) {
  tell({L"La\x1bser", L"a\nb",
        L"c\x9b"
        L"d",
        L"e\re"});
  EXPECT_EQ(lines(), "the server says why \"a b\" for \"La?ser\" was not printed: c?d. e e\n");
}

TEST_F(SessionClientTest, ServesNothingElse) {
  CS_OutRequest request(m_host, 20);
  CS_InRequest reply(request);
  EXPECT_THROW(request.execute(reply, 10000), CS_Exception);
}

}  // namespace
}  // namespace printclient
