#pragma once

#include "client/job.h"
#include "client/job_actions.h"
#include "client/job_follower.h"
#include "client/kept_documents.h"
#include "client/page/page_answer.h"
#include "client/page/page_guard.h"
#include "client/sinks/folder/folder_sink.h"
#include "corvane/base/process.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace printclient {

// A print client's jobs and what stands behind its page, without a server: jobs go to a folder of the test, and their
// documents are kept in another.
class PageFixture : public ::testing::Test {
 protected:
  PageFixture() {
    std::filesystem::remove_all(m_folder);
    std::filesystem::create_directories(m_folder / "out");
    std::filesystem::create_directories(m_folder / "kept");
    m_lines = std::tmpfile();
    m_reporter = std::make_unique<Reporter>(m_lines, false);
    m_output = std::make_unique<JobOutput>(m_folder / "out", 5, 42, *m_reporter, std::make_shared<FolderSink>());
    m_follower = std::make_unique<JobFollower>([](const FollowedJob&, const JobProgress&, bool) {});
    m_documents = std::make_unique<KeptDocuments>(m_folder / "kept", KeptDocuments::Bounds(), [this](auto number) {
      board().change(number, [](BoardJob& job) { job.kept.clear(); });
    });
    m_output->onWhole([this](const WholeDocument& document) { return m_documents->keep(document); });
    m_actions = std::make_unique<JobActions>(*m_output, *m_follower, m_documents.get());
    m_guard.setPort(4000);
    m_answers = std::make_unique<PageAnswers>(m_guard, board(), m_documents.get(), *m_actions);
  }
  ~PageFixture() override {
    m_answers.reset();
    m_actions.reset();
    m_documents.reset();
    m_follower.reset();
    m_output.reset();
    m_reporter.reset();
    std::fclose(m_lines);
    std::filesystem::remove_all(m_folder);
  }

  JobBoard& board() { return m_output->board(); }
  static protocol::JobStart ticket(const std::wstring& title) {
    protocol::JobStart made;
    made.jobName = L"Laser - Job #17";
    made.printerName = L"Laser";
    made.documentName = title;
    made.settings = {1, 1, 1, 1};
    made.copies = 1;
    return made;
  }
  static std::span<const unsigned char> bytes(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
  }
  // The board's number of a job that came whole.
  std::uint64_t print(const std::wstring& title, std::string_view data) {
    Job job(ticket(title), *m_output);
    job.append(bytes(data));
    job.end();
    return board().newerThan(0).order->front();
  }
  // What stands behind the secret, as the person's browser asks for it.
  PageRequest request(const std::string& method, const std::string& path) const {
    const std::string address = m_guard.address();
    PageRequest made;
    made.method = method;
    made.host = address.substr(7, address.find('/', 7) - 7);
    made.target = address.substr(address.find('/', 7)) + path;
    if (method == "POST") made.origin = "http://" + made.host;
    return made;
  }
  std::size_t filesIn(const std::string& folder) const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(m_folder / folder), std::filesystem::directory_iterator()));
  }

  static constexpr std::string_view kPdf = "%PDF-1.4 all of it\n%%EOF\n";

  const std::filesystem::path m_folder =
      std::filesystem::temp_directory_path() / ("page_" + std::to_string(corvane::processId()));
  std::FILE* m_lines = nullptr;
  std::unique_ptr<Reporter> m_reporter;
  std::unique_ptr<JobOutput> m_output;
  std::unique_ptr<JobFollower> m_follower;
  std::unique_ptr<KeptDocuments> m_documents;
  std::unique_ptr<JobActions> m_actions;
  PageGuard m_guard;
  std::unique_ptr<PageAnswers> m_answers;
};

}  // namespace printclient
