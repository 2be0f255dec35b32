#include "client/paper_report.h"

#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "tests/support/connection_pair.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace printclient {
namespace {

using protocol::PaperState;
using ::testing::ElementsAre;

FollowedJob paperJob(const std::string& label = "") {
  return {{1, 5, label}, L"Laser - Job #17", L"Laser", L"A letter"};
}

TEST(PaperLine, SaysWhatHasBecomeOfAJobAndWhatToDo) {
  EXPECT_EQ(paperLine(paperJob(), {PaperState::kWaiting, "", ""}), "\"A letter\" on \"Laser\" waits");
  EXPECT_EQ(paperLine(paperJob(), {PaperState::kPrinting, "", ""}), "\"A letter\" on \"Laser\" is being printed");
  EXPECT_EQ(paperLine(paperJob("print.example:4712: "), {PaperState::kStopped, "has no paper", "put paper in"}),
            "print.example:4712: \"A letter\" on \"Laser\" is held up: the printer has no paper; put paper in");
  EXPECT_EQ(
      paperLine(paperJob(), {PaperState::kCanceled, "was told to cancel the job", "print again if it is still wanted"}),
      "\"A letter\" on \"Laser\" was canceled: the printer was told to cancel the job; print again if it is still "
      "wanted");
  EXPECT_EQ(paperLine(paperJob(), {PaperState::kAborted, "gave the job up", "print again"}),
            "\"A letter\" on \"Laser\" was not printed after all: the printer gave the job up; print again");
  EXPECT_EQ(paperLine(paperJob(), {PaperState::kPrinted, "", ""}), "\"A letter\" on \"Laser\" has come out");
  EXPECT_EQ(paperLine(paperJob(), {PaperState::kUnknown, "still had it after a day", "see whether it has come out"}),
            "\"A letter\" on \"Laser\" is not followed any more: the printer still had it after a day; see whether it "
            "has come out");
  FollowedJob unnamed;
  unnamed.printer = L"Laser";
  EXPECT_EQ(paperLine(unnamed, {PaperState::kPrinted, "", ""}), "an unnamed job on \"Laser\" has come out");
  unnamed.name = L"Laser - Job #17";
  EXPECT_EQ(paperLine(unnamed, {PaperState::kPrinted, "", ""}), "\"Laser - Job #17\" on \"Laser\" has come out");
}

TEST(PaperNews, OfAJobHasASentenceForTheCauseAndOneForTheRemedy) {
  const protocol::PaperNews news =
      paperNews(paperJob(), {PaperState::kStopped, "has no paper (\"Load A4\")", "put paper in"});
  EXPECT_EQ(news.printer, L"Laser");
  EXPECT_EQ(news.job, L"Laser - Job #17");
  EXPECT_EQ(news.document, L"A letter");
  EXPECT_EQ(news.state, PaperState::kStopped);
  EXPECT_EQ(news.cause, L"The printer has no paper (\"Load A4\").");
  EXPECT_EQ(news.remedy, L"Put paper in.");
  EXPECT_EQ(paperNews(paperJob(), {PaperState::kPrinted, "", ""}).cause, L"");
}

// The server's half, which writes down what it is told.
class Listener : public CS_Component {
 public:
  using Context = std::vector<PaperState>;
  explicit Listener(std::shared_ptr<Context> told) : m_told(std::move(told)) {}
  bool processRequest(CS_InRequest& request) override {
    m_told->push_back(protocol::read<protocol::PaperNews>(request).state);
    return true;
  }

 private:
  std::shared_ptr<Context> m_told;
};

TEST(PaperReport, TellsThePersonEachChangeAndTheServerEverythingWhileItIsThere) {
  std::FILE* const lines = std::tmpfile();
  const auto told = std::make_shared<std::vector<PaperState>>();
  {
    Reporter reporter(lines, false);
    PaperReport report(reporter);
    ConnectionPair pair;
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kSessionHostClass,
                          new corvane::ComponentClass<Listener, Listener::Context>(protocol::kVersion, told));
    server->offerClass(protocol::kSessionHostClass);
    protocol::registerSessionClientClass();
    report.tell(paperJob(), {PaperState::kWaiting, "", ""}, true);  // to nobody
    report.enter(1, protocol::makeSessionClient(pair.dialedPointer()));
    report.tell(paperJob(), {PaperState::kWaiting, "", ""}, true);
    report.tell(paperJob(), {PaperState::kPrinting, "", ""}, false);
    FollowedJob nobodys = paperJob();
    nobodys.printer = L"";
    report.tell(nobodys, {PaperState::kWaiting, "", ""}, true);
    FollowedJob others = paperJob();
    others.origin.server = 2;
    report.tell(others, {PaperState::kAborted, "gave the job up", "print again"}, false);
    report.leave(1);
    report.leave(1);
    report.tell(paperJob(), {PaperState::kPrinted, "", ""}, false);
    CS_Connection::destroy(pair.dialedPointer(), true);
    pair.join();
    reporter.flush();
  }
  EXPECT_THAT(*told, ElementsAre(PaperState::kWaiting, PaperState::kPrinting));
  std::rewind(lines);
  std::string said(1000, '\0');
  said.resize(std::fread(said.data(), 1, said.size(), lines));
  std::fclose(lines);
  EXPECT_EQ(said,
            "\"A letter\" on \"Laser\" is being printed\n"
            "\"A letter\" on \"Laser\" was not printed after all: the printer gave the job up; print again\n"
            "\"A letter\" on \"Laser\" has come out\n");
}

TEST(PaperReport, AServerThatHasGoneIsNoFailure) {
  std::FILE* const lines = std::tmpfile();
  {
    Reporter reporter(lines, false);
    PaperReport report(reporter);
    ConnectionPair pair;
    protocol::registerSessionClientClass();
    report.enter(1, protocol::makeSessionClient(pair.dialedPointer()));
    CS_Connection::destroy(pair.dialedPointer(), true);
    report.tell(paperJob(), {PaperState::kPrinted, "", ""}, false);
  }
  std::fclose(lines);
}

}  // namespace
}  // namespace printclient
