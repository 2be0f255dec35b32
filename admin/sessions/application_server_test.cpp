#include "admin/sessions/application_server.h"

#include "admin/base/failure.h"
#include "corvane/components/component_server.h"
#include "corvane/records/program_monitor.h"
#include "tests/support/import_seam.h"
#include "tests/support/scripted_peer.h"

#include <windows.h>

#include <cwchar>
#include <gmock/gmock.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegGetValueW, ERROR_FILE_NOT_FOUND)

namespace admin {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr char kClass[] = "AdministrationServer";

class NoSink : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

class ApplicationServerTest : public testing::Test {
 protected:
  ApplicationServerTest() {
    CS_ComponentServer::initialize(0, 0);
    corvane::LocalMonitor::instance().setSink(std::make_unique<NoSink>());
  }
  ~ApplicationServerTest() override { corvane::LocalMonitor::instance().setSink(nullptr); }

  // Opens the server and asks; gives what it throws.
  template <class Ask>
  Failure failureOf(int port, Ask&& ask) {
    try {
      ApplicationServer server(port);
      ask(server);
    } catch (const Failure& failure) {
      return failure;
    }
    return Failure(ExitCode::kDone, "nothing was thrown", "");
  }

  ScriptedPeer peer;
};

void writePrinter(corvane::ValueWriter& reply, const wchar_t* name, bool isDefault) {
  reply.writeText((std::wstring(name) + L" (session 5)").c_str());
  reply.writeBoolean(true);
  reply.writeText(name);
  for (int text = 1; text < 8; ++text) {
    reply.writeBoolean(text == 3);
    if (text == 3) reply.writeText(L"Generic PostScript");
  }
  reply.writeBoolean(isDefault);
  reply.writeInt(3);
  reply.writeInt(600);
}

void writeHead(corvane::ValueWriter& reply, int sessions) {
  reply.writeText(L"4.0.1.0");
  reply.writeInt(77);
  reply.writeText(L"2026-01-31T23:59:59Z");
  reply.writeInt(sessions);
}

void writeSession(corvane::ValueWriter& reply, int number, std::initializer_list<const wchar_t*> printers) {
  reply.writeInt(number);
  reply.writeBoolean(true);
  reply.writeText(L"2026-02-01T00:00:00Z");
  reply.writeInt(static_cast<int>(printers.size()));
  for (const wchar_t* printer : printers)
    writePrinter(reply, printer, false);
}

void writeNext(corvane::ValueWriter& reply, int session, int printer) {
  reply.writeBoolean(true);
  reply.writeInt(session);
  reply.writeInt(printer);
}

TEST_F(ApplicationServerTest, SaysItsSessionsAndTheirPrinters) {
  peer.answer(kClass, 33, [](corvane::ValueWriter& reply) {
    reply.writeText(L"4.0.1.0");
    reply.writeInt(77);
    reply.writeText(L"2026-01-31T23:59:59Z");
    reply.writeInt(1);
    reply.writeInt(5);
    reply.writeBoolean(true);
    reply.writeText(L"2026-02-01T00:00:00Z");
    reply.writeInt(2);
    writePrinter(reply, L"Laser-2", false);
    writePrinter(reply, L"Ink", true);
    reply.writeBoolean(false);
  });
  const protocol::ServerStatus facts = ApplicationServer(peer.port()).status();
  EXPECT_FALSE(facts.held) << "an earlier server does not tell";
  EXPECT_EQ(facts.version, L"4.0.1.0");
  EXPECT_EQ(facts.process, 77);
  EXPECT_EQ(facts.since, L"2026-01-31T23:59:59Z");
  EXPECT_EQ(facts.session(6), nullptr);
  const protocol::ListedSession* const session = facts.session(5);
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(session->isConnected);
  EXPECT_EQ(session->since, L"2026-02-01T00:00:00Z");
  ASSERT_THAT(session->printers, SizeIs(2));
  EXPECT_EQ(session->printers[0].localName, L"Laser-2 (session 5)");
  EXPECT_EQ(session->printers[0].name(), L"Laser-2");
  EXPECT_EQ(session->printers[0].driver(), L"Generic PostScript");
  EXPECT_FALSE(session->printers[0].isDefault);
  EXPECT_EQ(session->printers[0].format, protocol::DataFormat::kPdf);
  EXPECT_EQ(session->printers[0].resolution, 600);
  EXPECT_TRUE(session->printers[1].isDefault);
}

TEST_F(ApplicationServerTest, IsAskedForRecordsByTheirNumber) {
  peer.answer(kClass, 31, [](corvane::ValueWriter& reply) {
    for (const wchar_t* line : {L"older", L"newer"}) {
      reply.writeBoolean(true);
      reply.writeText(line);
    }
    reply.writeBoolean(false);
  });
  EXPECT_THAT(ApplicationServer(peer.port()).records(10), ElementsAre(L"older", L"newer"));
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 10")));
}

TEST_F(ApplicationServerTest, GivesTheLineOfAnInvitationOrSaysWhyThereIsNone) {
  peer.answer(kClass, 34, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeText(L"mgprint://h:1/session-5/0");
  });
  EXPECT_EQ(ApplicationServer(peer.port()).invite({5, true, L"h:1"}), L"mgprint://h:1/session-5/0");
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 5, boolean true, text \"h:1\"")));
  peer.answer(kClass, 34, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(false);
    reply.writeText(L"aps runs without keys");
  });
  try {
    ApplicationServer(peer.port()).invite({5, false, L""});
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kFailed);
    EXPECT_STREQ(failure.what(), "nobody is invited: aps runs without keys");
  }
}

TEST_F(ApplicationServerTest, GivesNoticesWithTheirValues) {
  peer.answer(kClass, 32, [](corvane::ValueWriter& reply) {
    reply.writeInt(12);
    reply.writeBoolean(true);
    reply.writeInt(12);
    reply.writeText(L"2026-01-31T23:59:59Z");
    reply.writeText(L"job");
    reply.writeText(L"job 3 was delivered");
    reply.writeInt(2);
    for (const wchar_t* text : {L"job", L"3", L"result", L"delivered"})
      reply.writeText(text);
    reply.writeBoolean(false);
  });
  const protocol::Notices::Answer notices = ApplicationServer(peer.port()).notices(11, 250);
  EXPECT_EQ(notices.latest, 12);
  ASSERT_THAT(notices.notices, SizeIs(1));
  EXPECT_EQ(notices.notices[0].kind, L"job");
  EXPECT_EQ(notices.notices[0].line, L"job 3 was delivered");
  EXPECT_EQ(notices.notices[0].value(L"result"), L"delivered");
  EXPECT_EQ(notices.notices[0].value(L"cause"), L"");
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 11, int 250")));
}

TEST_F(ApplicationServerTest, ThatIsAwaySaysWhereItWasLookedForAndWhatToDo) {
  int port = 0;
  { port = ScriptedPeer().port(); }
  const Failure failure = failureOf(port, [](ApplicationServer&) {});
  EXPECT_EQ(failure.code(), ExitCode::kServerAway);
  EXPECT_THAT(failure.what(), HasSubstr("the application server on port " + std::to_string(port) +
                                        " of this machine does not answer: "));
  EXPECT_THAT(failure.remedy(), HasSubstr("Start aps"));
}

TEST_F(ApplicationServerTest, ThatDoesNotKnowTheQuestionIsSaidToBeOld) {
  const Failure failure = failureOf(peer.port(), [](ApplicationServer& server) { server.status(); });
  EXPECT_EQ(failure.code(), ExitCode::kServerAway);
  EXPECT_THAT(failure.what(), HasSubstr("refuses to answer"));
}

TEST_F(ApplicationServerTest, ThatHangsUpInTheMiddleIsAway) {
  peer.hangUpAt(kClass, 33);
  const Failure failure = failureOf(peer.port(), [](ApplicationServer& server) { server.status(); });
  EXPECT_EQ(failure.code(), ExitCode::kServerAway);
  EXPECT_THAT(failure.what(), HasSubstr("has gone"));
}

TEST_F(ApplicationServerTest, IsAskedForPagesUntilThereAreNoMore) {
  int page = 0;
  peer.answer(kClass, 33, [&page](corvane::ValueWriter& reply) {
    if (page == 0) {
      writeHead(reply, 2);
      writeSession(reply, 5, {L"A"});
      writeSession(reply, 6, {L"B", L"C"});
      writeNext(reply, 6, 2);
    } else if (page == 1) {
      writeHead(reply, 1);
      writeSession(reply, 6, {L"D"});
      writeNext(reply, 7, 0);
    } else {
      writeHead(reply, 1);
      writeSession(reply, 7, {L"E"});
      reply.writeBoolean(false);
    }
    ++page;
  });
  std::wstring all;
  for (const protocol::ListedSession& session : ApplicationServer(peer.port()).status().sessions) {
    all += std::to_wstring(session.number) + L":";
    for (const protocol::ListedPrinter& printer : session.printers)
      all += L" " + printer.name();
    all += L"; ";
  }
  EXPECT_EQ(all, L"5: A; 6: B C D; 7: E; ");
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 0, int 0")));
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 6, int 2")));
  EXPECT_THAT(peer.lines(), Contains(HasSubstr("int 7, int 0")));
}

TEST_F(ApplicationServerTest, WhosePagesDoNotGoOnIsNotAskedForEver) {
  peer.answer(kClass, 33, [](corvane::ValueWriter& reply) {
    writeHead(reply, 1);
    writeSession(reply, 5, {L"A"});
    writeNext(reply, 5, 1);
  });
  const Failure failure = failureOf(peer.port(), [](ApplicationServer& server) { server.status(); });
  EXPECT_EQ(failure.code(), ExitCode::kServerAway);
  EXPECT_THAT(failure.what(), HasSubstr("pages that do not go on"));
}

TEST_F(ApplicationServerTest, ThatClaimsAnAbsurdNumberIsNotBelieved) {
  peer.answer(kClass, 33, [](corvane::ValueWriter& reply) {
    reply.writeText(L"4.0.1.0");
    reply.writeInt(77);
    reply.writeText(L"");
    reply.writeInt(2000000000);
  });
  EXPECT_EQ(failureOf(peer.port(), [](ApplicationServer& server) { server.status(); }).code(), ExitCode::kServerAway);
}

TEST_F(ApplicationServerTest, WithoutTheMonitorsKeyTheServerIsNotEvenDialled) {
  const ImportSeams seams;
  RegGetValueWSeam.replacement = [](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID data, LPDWORD) -> LSTATUS {
    if (std::wcscmp(name, L"KeyFile") != 0) return ERROR_FILE_NOT_FOUND;
    std::wcscpy(static_cast<wchar_t*>(data), L"C:\\none\\monitor.key");
    return ERROR_SUCCESS;
  };
  const Failure failure = failureOf(peer.port(), [](ApplicationServer& server) { server.status(); });
  EXPECT_EQ(failure.code(), ExitCode::kServerAway);
  EXPECT_THAT(failure.what(),
              HasSubstr(" of this machine is not queried: This side needs a key to prove who it is. the "
                        "key file cannot be opened ("));
  EXPECT_THAT(failure.remedy(), HasSubstr("mgprintmon uses the monitor's key (registry value KeyFile of "));
  EXPECT_THAT(peer.lines(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace admin
