#include "server/metrics/metrics_text.h"

#include "protocol/job_json.h"

#include <fmt/format.h>
#include <iterator>
#include <string_view>

namespace aps {
namespace {

// Writes one metric after another in one of the two forms, which differ in where the name of a counter ends and in the
// end of the text.
class MetricsWriter {
 public:
  explicit MetricsWriter(MetricsForm form) : m_form(form) {}

  void counter(std::string_view name, std::string_view help) {
    m_name = fmt::format("{}_total", name);
    describe(m_form == MetricsForm::kOpenMetrics ? std::string(name) : m_name, "counter", help);
  }
  void gauge(std::string_view name, std::string_view help) {
    m_name = name;
    describe(m_name, "gauge", help);
  }
  void histogram(std::string_view name, std::string_view help) {
    m_name = name;
    describe(m_name, "histogram", help);
  }
  // A value of the metric that was named last; the labels are written as they are.
  template <class Value>
  void value(const Value& number, std::string_view labels = {}, std::string_view suffix = {}) {
    fmt::format_to(std::back_inserter(m_text), "{}{}{}{}{} {}\n", m_name, suffix, labels.empty() ? "" : "{", labels,
                   labels.empty() ? "" : "}", number);
  }
  std::string text() const { return m_text + (m_form == MetricsForm::kOpenMetrics ? "# EOF\n" : ""); }

 private:
  void describe(const std::string& name, std::string_view type, std::string_view help) {
    fmt::format_to(std::back_inserter(m_text), "# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  }

  const MetricsForm m_form;
  std::string m_name, m_text;
};

void writeJobs(MetricsWriter& to, const JobMetrics::Counts& jobs) {
  to.counter("aps_jobs", "Jobs that have ended, by how, and by what the failed ones failed.");
  for (std::size_t outcome = 0; outcome < JobMetrics::kOutcomes.size(); ++outcome) {
    for (std::size_t failure = 0; failure < kFailureClasses.size(); ++failure) {
      const bool isFailed = outcome == static_cast<std::size_t>(JobMetrics::Outcome::kFailed);
      if (isFailed != (failure != static_cast<std::size_t>(FailureClass::kNone))) continue;
      to.value(jobs.ended[outcome][failure],
               fmt::format(R"(outcome="{}",failed_by="{}")", JobMetrics::kOutcomes[outcome], kFailureClasses[failure]));
    }
  }
  to.counter("aps_paper", "Jobs of which the print client has told what became of their paper.");
  for (std::size_t paper = 0; paper < JobMetrics::kPapers.size(); ++paper)
    to.value(jobs.paper[paper], fmt::format(R"(outcome="{}")", JobMetrics::kPapers[paper]));
  to.counter("aps_job_bytes", "Bytes of ended jobs that were passed on to print clients.");
  to.value(jobs.bytes);
  to.histogram("aps_job_stage_seconds", "How long the stages of ended jobs took.");
  for (const protocol::JobStage stage : protocol::kStages) {
    const JobMetrics::Histogram& histogram = jobs.stages[stage];
    const std::string label = fmt::format(R"(stage="{}")", protocol::wordOf(stage));
    std::uint64_t sum = 0;
    for (std::size_t bound = 0; bound < JobMetrics::kSeconds.size(); ++bound) {
      sum += histogram.counts[bound];
      to.value(sum, fmt::format(R"({},le="{:.1f}")", label, JobMetrics::kSeconds[bound]), "_bucket");
    }
    to.value(histogram.total(), label + R"(,le="+Inf")", "_bucket");
    to.value(histogram.sum, label, "_sum");
    to.value(histogram.total(), label, "_count");
  }
}

}  // namespace

const char* contentTypeOf(MetricsForm form) {
  return form == MetricsForm::kOpenMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                           : "text/plain; version=0.0.4; charset=utf-8";
}

MetricsForm formFor(const std::string& accept) {
  return accept.find("application/openmetrics-text") != std::string::npos ? MetricsForm::kOpenMetrics
                                                                          : MetricsForm::kPlain;
}

std::string textOf(const Metrics& metrics, MetricsForm form) {
  MetricsWriter to(form);
  writeJobs(to, metrics.jobs);
  to.gauge("aps_jobs_running", "Jobs between the port monitor and their print client.");
  to.value(metrics.running);
  to.gauge("aps_jobs_held", "Jobs that are held for print clients that are away.");
  to.value(metrics.held);
  to.gauge("aps_records_waiting", "Records of jobs that the history has not taken yet.");
  to.value(metrics.recordsWaiting);
  to.gauge("aps_sessions", "Sessions that are known, by whether their print client is there.");
  to.value(metrics.sessionsConnected, R"(client="connected")");
  to.value(metrics.sessionsAway, R"(client="away")");
  to.gauge("aps_connections", "Connections, by what they are for.");
  for (std::size_t room = 0; room < Metrics::kRooms.size(); ++room)
    to.value(metrics.connections[room], fmt::format(R"(room="{}")", Metrics::kRooms[room]));
  to.counter("aps_log_lines_lost", "Lines that the log did not take.");
  to.value(metrics.logLinesLost);
  to.gauge("aps_build_info", "The version of this server; always 1.");
  to.value(1, fmt::format(R"(version="{}")", metrics.version));
  to.gauge("aps_start_time_seconds", "When this server began, in seconds since 1970.");
  to.value(metrics.startedAt);
  return to.text();
}

}  // namespace aps
