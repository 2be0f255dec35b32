#include "client/page/page_answer.h"

#include "client/page/page_json.h"
#include "tests/support/client/page_fixture.h"

#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>

namespace printclient {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class PageAnswerTest : public PageFixture {
 protected:
  PageAnswer get(const std::string& path) { return m_answers->to(request("GET", path)); }
  PageAnswer post(const std::string& path) { return m_answers->to(request("POST", path)); }
  static std::map<std::string, std::string> headers(const PageAnswer& answer) {
    std::map<std::string, std::string> all;
    for (const auto& [name, value] : answer.headers())
      all[name] = value;
    return all;
  }
};

TEST_F(PageAnswerTest, ThePageAndItsFilesAreThereAndNothingElse) {
  EXPECT_THAT(get("").body, HasSubstr("<h1 id=\"heading\""));
  EXPECT_EQ(get("").type, "text/html; charset=utf-8");
  EXPECT_EQ(get("page.css").type, "text/css; charset=utf-8");
  EXPECT_THAT(get("page.js").body, HasSubstr("EventSource"));
  EXPECT_TRUE(get("events").isStream);
  for (const char* const path : {"x", "page", "..", "jobs/", "jobs/x/view", "jobs/1", "jobs/1/x", "jobs/1view",
                                 "jobs/99999999999999999999/view", "jobs/-1/view", "jobs/1/view/"})
    EXPECT_EQ(get(path).status, 404u) << path;
}

TEST_F(PageAnswerTest, EveryAnswerForbidsWhatThePageDoesNotNeed) {
  print(L"Report", kPdf);
  PageRequest stranger = request("GET", "");
  stranger.target = "/";
  for (const PageAnswer& answer : {get(""), get("page.js"), get("events"), get("jobs/1/view"), get("x"),
                                   post("jobs/1/cancel"), m_answers->to(stranger)}) {
    auto all = headers(answer);
    EXPECT_EQ(all["Cache-Control"], "no-store");
    EXPECT_EQ(all["X-Content-Type-Options"], "nosniff");
    EXPECT_EQ(all["Referrer-Policy"], "no-referrer");
    EXPECT_EQ(all["X-Frame-Options"], "DENY");
    EXPECT_THAT(all["Content-Security-Policy"], ::testing::StartsWith("default-src 'none'; "));
    EXPECT_THAT(all["Content-Security-Policy"], HasSubstr("frame-ancestors 'none'"));
    EXPECT_THAT(all["Content-Security-Policy"], Not(HasSubstr("script-src 'unsafe")));
  }
  EXPECT_THAT(headers(get("jobs/1/view"))["Content-Security-Policy"], Not(HasSubstr("script-src")));
}

TEST_F(PageAnswerTest, APdfIsShownAndEverythingElseIsAFileOfNoKind) {
  print(L"Report", kPdf);
  print(L"<script>.html", "<html><script>alert(1)</script>");
  EXPECT_EQ(get("jobs/1/view").type, "application/pdf");
  EXPECT_EQ(get("jobs/1/view").disposition, "inline; filename*=UTF-8''Report.pdf");
  EXPECT_EQ(get("jobs/1/file").disposition, "attachment; filename*=UTF-8''Report.pdf");
  EXPECT_EQ(get("jobs/2/view").type, "application/octet-stream");
  EXPECT_EQ(get("jobs/2/view").disposition, "attachment; filename*=UTF-8''-script-.html.txt");
  EXPECT_EQ(get("jobs/3/view").status, 404u);
}

TEST_F(PageAnswerTest, ANameCannotLeaveItsHeader) {
  print(L"a\"; x=\"b\r\nSet-Cookie: c=d \u00e4", kPdf);
  EXPECT_EQ(get("jobs/1/file").disposition,
            "attachment; filename*=UTF-8''a-%3B%20x%3D-bSet-Cookie-%20c%3Dd%20%C3%A4.pdf");
}

TEST_F(PageAnswerTest, ActionsArePostedAndOthersAreNot) {
  print(L"Report", kPdf);
  EXPECT_EQ(get("jobs/1/again").status, 405u);
  EXPECT_EQ(get("jobs/1/cancel").status, 405u);
  EXPECT_EQ(post("jobs/1/view").status, 405u);
  EXPECT_EQ(post("").status, 405u);
  EXPECT_EQ(post("jobs/1/cancel").status, 409u);
  EXPECT_EQ(post("jobs/1/cancel").body, "This job is over already.\n");
  EXPECT_EQ(post("jobs/7/again").status, 404u);
  EXPECT_EQ(board().newerThan(0).jobs.size(), 1u);
  EXPECT_EQ(post("jobs/1/again").status, 202u);
  m_actions.reset();
  EXPECT_EQ(board().newerThan(0).jobs.size(), 2u);
}

TEST_F(PageAnswerTest, WhatComesFromElsewhereIsDataInTheEvents) {
  BoardJob job;
  job.title = "</script>\u2028\"\n\xff";
  job.printer = "<b>";
  job.cause = "why";
  board().add(job);
  const std::string line = pageJson(board().newerThan(0));
  EXPECT_THAT(line, Not(HasSubstr("\n")));
  for (const char c : line)
    EXPECT_TRUE(c >= ' ' && c < 127);
  const auto read = nlohmann::json::parse(line);
  EXPECT_EQ(read["jobs"][0]["title"], "</script>\u2028\"\n\ufffd");
  EXPECT_EQ(read["jobs"][0]["stage"], "arriving");
  EXPECT_EQ(read["order"], nlohmann::json::array({1}));
}

}  // namespace
}  // namespace printclient
