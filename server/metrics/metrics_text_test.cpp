#include "server/metrics/metrics_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

Metrics some() {
  Metrics metrics;
  metrics.jobs.ended[0][0] = 5;
  metrics.jobs.ended[2][3] = 2;
  metrics.jobs.paper[0] = 4;
  metrics.jobs.bytes = 5000000000;
  metrics.jobs.stages[3].add(0.2);
  metrics.jobs.stages[3].add(4000);
  metrics.running = 1;
  metrics.held = 6;
  metrics.recordsWaiting = 7;
  metrics.sessionsConnected = 2;
  metrics.sessionsAway = 3;
  metrics.connections = {1, 2, 3, 4, 5};
  metrics.logLinesLost = 9;
  metrics.version = "4.0.1.0";
  metrics.startedAt = 1700000000.5;
  return metrics;
}

TEST(MetricsText, HasEveryValueWithItsLabels) {
  const std::string text = textOf(some(), MetricsForm::kPlain);
  EXPECT_THAT(text,
              StartsWith("# HELP aps_jobs_total Jobs that have ended, by how, and by what the failed ones failed.\n"
                         "# TYPE aps_jobs_total counter\n"
                         "aps_jobs_total{outcome=\"delivered\",failed_by=\"none\"} 5\n"
                         "aps_jobs_total{outcome=\"shown\",failed_by=\"none\"} 0\n"
                         "aps_jobs_total{outcome=\"failed\",failed_by=\"not attached\"} 0\n"
                         "aps_jobs_total{outcome=\"failed\",failed_by=\"port monitor\"} 0\n"
                         "aps_jobs_total{outcome=\"failed\",failed_by=\"print client\"} 2\n"
                         "aps_jobs_total{outcome=\"canceled\",failed_by=\"none\"} 0\n"
                         "# HELP aps_paper_total "));
  for (const char* line : {"aps_paper_total{outcome=\"printed\"} 4\n", "aps_job_bytes_total 5000000000\n",
                           "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"0.1\"} 0\n",
                           "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"0.5\"} 1\n",
                           "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"1800.0\"} 1\n",
                           "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"+Inf\"} 2\n",
                           "aps_job_stage_seconds_sum{stage=\"paper\"} 4000.2\n",
                           "aps_job_stage_seconds_count{stage=\"paper\"} 2\n", "aps_jobs_running 1\n",
                           "aps_jobs_held 6\n", "aps_records_waiting 7\n", "aps_sessions{client=\"connected\"} 2\n",
                           "aps_sessions{client=\"away\"} 3\n", "aps_connections{room=\"arriving from network\"} 2\n",
                           "aps_connections{room=\"administration\"} 5\n", "aps_log_lines_lost_total 9\n",
                           "aps_build_info{version=\"4.0.1.0\"} 1\n", "aps_start_time_seconds 1700000000.5\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
  EXPECT_THAT(text, Not(HasSubstr("# EOF")));
}

TEST(MetricsText, SaysOfEachMetricWhatItIs) {
  const std::string text = textOf(some(), MetricsForm::kPlain);
  const std::size_t paper = text.find("# HELP aps_paper_total");
  const std::size_t stages = text.find("aps_job_stage_seconds_bucket");
  EXPECT_EQ(text.substr(paper, stages - paper),
            "# HELP aps_paper_total Jobs of which the print client has told what became of their paper.\n"
            "# TYPE aps_paper_total counter\n"
            "aps_paper_total{outcome=\"printed\"} 4\n"
            "aps_paper_total{outcome=\"failed\"} 0\n"
            "aps_paper_total{outcome=\"canceled\"} 0\n"
            "# HELP aps_job_bytes_total Bytes of ended jobs that were passed on to print clients.\n"
            "# TYPE aps_job_bytes_total counter\n"
            "aps_job_bytes_total 5000000000\n"
            "# HELP aps_job_stage_seconds How long the stages of ended jobs took.\n"
            "# TYPE aps_job_stage_seconds histogram\n");
  EXPECT_EQ(text.substr(text.find("# HELP aps_jobs_running")),
            "# HELP aps_jobs_running Jobs between the port monitor and their print client.\n"
            "# TYPE aps_jobs_running gauge\n"
            "aps_jobs_running 1\n"
            "# HELP aps_jobs_held Jobs that are held for print clients that are away.\n"
            "# TYPE aps_jobs_held gauge\n"
            "aps_jobs_held 6\n"
            "# HELP aps_records_waiting Records of jobs that the history has not taken yet.\n"
            "# TYPE aps_records_waiting gauge\n"
            "aps_records_waiting 7\n"
            "# HELP aps_sessions Sessions that are known, by whether their print client is there.\n"
            "# TYPE aps_sessions gauge\n"
            "aps_sessions{client=\"connected\"} 2\n"
            "aps_sessions{client=\"away\"} 3\n"
            "# HELP aps_connections Connections, by what they are for.\n"
            "# TYPE aps_connections gauge\n"
            "aps_connections{room=\"arriving\"} 1\n"
            "aps_connections{room=\"arriving from network\"} 2\n"
            "aps_connections{room=\"print clients\"} 3\n"
            "aps_connections{room=\"monitor\"} 4\n"
            "aps_connections{room=\"administration\"} 5\n"
            "# HELP aps_log_lines_lost_total Lines that the log did not take.\n"
            "# TYPE aps_log_lines_lost_total counter\n"
            "aps_log_lines_lost_total 9\n"
            "# HELP aps_build_info The version of this server; always 1.\n"
            "# TYPE aps_build_info gauge\n"
            "aps_build_info{version=\"4.0.1.0\"} 1\n"
            "# HELP aps_start_time_seconds When this server began, in seconds since 1970.\n"
            "# TYPE aps_start_time_seconds gauge\n"
            "aps_start_time_seconds 1700000000.5\n");
}

TEST(MetricsText, HasForEachStageWhatTookNoLongerThanEachBound) {
  const std::string text = textOf(some(), MetricsForm::kPlain);
  const std::size_t from = text.find("aps_job_stage_seconds_bucket{stage=\"paper\"");
  EXPECT_EQ(text.substr(from, text.find("# HELP aps_jobs_running") - from),
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"0.1\"} 0\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"0.5\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"1.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"5.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"10.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"30.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"60.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"300.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"1800.0\"} 1\n"
            "aps_job_stage_seconds_bucket{stage=\"paper\",le=\"+Inf\"} 2\n"
            "aps_job_stage_seconds_sum{stage=\"paper\"} 4000.2\n"
            "aps_job_stage_seconds_count{stage=\"paper\"} 2\n");
  for (const char* stage : {"collecting", "sending", "taking"})
    EXPECT_THAT(text, HasSubstr("aps_job_stage_seconds_count{stage=\"" + std::string(stage) + "\"} 0\n"));
}

TEST(MetricsText, OfAServerThatHasDoneNothingEverythingIsNought) {
  const std::string text = textOf(Metrics(), MetricsForm::kPlain);
  for (const char* name :
       {"jobs_running", "jobs_held", "records_waiting", "sessions{client=\"connected\"}", "sessions{client=\"away\"}",
        "connections{room=\"arriving\"}", "log_lines_lost_total", "job_bytes_total", "start_time_seconds"}) {
    EXPECT_THAT(text, HasSubstr("\naps_" + std::string(name) + " 0\n"));
  }
}

TEST(MetricsText, AsOpenMetricsACounterIsDescribedWithoutItsEndingAndTheTextHasAnEnd) {
  const std::string text = textOf(some(), MetricsForm::kOpenMetrics);
  EXPECT_THAT(text, HasSubstr("# TYPE aps_jobs counter\naps_jobs_total{"));
  EXPECT_THAT(text, HasSubstr("# TYPE aps_log_lines_lost counter\naps_log_lines_lost_total 9\n"));
  EXPECT_THAT(text, HasSubstr("# TYPE aps_jobs_running gauge\naps_jobs_running 1\n"));
  EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST(MetricsText, IsInTheFormThatIsAskedFor) {
  EXPECT_EQ(formFor(""), MetricsForm::kPlain);
  EXPECT_EQ(formFor("text/plain;version=0.0.4"), MetricsForm::kPlain);
  EXPECT_EQ(formFor("application/openmetrics-text;version=1.0.0,text/plain;q=0.5"), MetricsForm::kOpenMetrics);
  EXPECT_STREQ(contentTypeOf(MetricsForm::kPlain), "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_STREQ(contentTypeOf(MetricsForm::kOpenMetrics), "application/openmetrics-text; version=1.0.0; charset=utf-8");
}

}  // namespace
}  // namespace aps
