// What mgprintmon tells of jobs, and how one is canceled while it runs.

#include "tests/end_to_end/administration_fixture.h"
#include "tests/end_to_end/wine_prefix.h"

#include <future>
#include <signal.h>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class AdministrationOfJobs : public Administration {
 protected:
  void bringUp() {
    install();
    m_client = scene.startClient(5, {"Desk,driver=Generic PostScript"});
    up("5");
  }
  Machine::Result print() { return run({"print", "Desk (session 5)", windowsPath(kLetter), "--title", "A letter"}); }

  std::unique_ptr<ChildProcess> m_client;
};

TEST_F(AdministrationOfJobs, AJobsStoryIsToldToPeopleAndToPrograms) {
  bringUp();
  EXPECT_EQ(succeed({"jobs"}), "no such jobs\n");
  EXPECT_EQ(print().code, 0);
  EXPECT_THAT(succeed({"jobs"}),
              AllOf(HasSubstr("  delivered  "), HasSubstr("session 5, root, Desk (session 5): A letter\n")));
  EXPECT_THAT(succeed({"jobs", "1"}), AllOf(HasSubstr("  delivered  "), HasSubstr("        on "), HasSubstr("sending "),
                                            HasSubstr("        ended 2")));
  EXPECT_THAT(succeed({"jobs", "--user", "ROOT", "--since", "yesterday", "--json"}),
              AllOf(HasSubstr("\"state\": \"delivered\""), HasSubstr("\"user\": \"root\""),
                    HasSubstr("\"document\": \"A letter\""), HasSubstr("\"session\": 5"), HasSubstr("\"began\": \"2"),
                    HasSubstr("Z\""), HasSubstr("\"paper\": null"), HasSubstr("\"trouble\": \"\"")));
  for (const std::vector<std::string>& none :
       {std::vector<std::string>{"--failed"}, {"--user", "anna"}, {"--session", "6"}, {"--until", "yesterday"}}) {
    std::vector<std::string> words = {"jobs"};
    words.insert(words.end(), none.begin(), none.end());
    EXPECT_EQ(succeed(words), "no such jobs\n") << none[0];
  }
  const Machine::Result unknown = run({"jobs", "99"});
  EXPECT_EQ(unknown.code, 3);
  EXPECT_THAT(unknown.output, HasSubstr("aps knows no job 99\n"));
  const Machine::Result wrong = run({"jobs", "--since", "tomorrow"});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_THAT(wrong.output, HasSubstr("\"tomorrow\" is no time; give today, yesterday, an age such as 90m"));
}

TEST_F(AdministrationOfJobs, AJobThatRunsIsCanceledAndItsApplicationLearnsOfIt) {
  bringUp();
  m_client->signal(SIGSTOP);  // takes nothing for now
  auto printing = std::async(std::launch::async, [this] { return print(); });
  scene.server().waitForLine("job attached: ");
  EXPECT_THAT(succeed({"jobs"}), HasSubstr("  running  "));
  EXPECT_EQ(succeed({"cancel", "1"}), "job 1 \"A letter\" on \"Desk (session 5)\" is canceled\n");
  const Machine::Result printed = printing.get();
  EXPECT_EQ(printed.code, 1);
  EXPECT_THAT(printed.output, HasSubstr("canceled by root"));
  m_client->signal(SIGCONT);
  EXPECT_THAT(succeed({"jobs"}), AllOf(HasSubstr("  canceled  "), HasSubstr("        It was canceled by root.\n")));
  const Machine::Result again = run({"cancel", "1"});
  EXPECT_EQ(again.code, 1);
  EXPECT_THAT(again.output, HasSubstr("nothing is canceled: job 1 \"A letter\" on \"Desk (session 5)\" has ended"));
  EXPECT_THAT(run({"cancel", "9"}).output, HasSubstr("nothing is canceled: no job 9 is running"));
  EXPECT_EQ(print().code, 0) << "the next job prints";
}

}  // namespace
}  // namespace tests
