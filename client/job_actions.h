#pragma once

#include "client/job_follower.h"
#include "client/job_output.h"
#include "client/kept_documents.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace printclient {

// What the person does to jobs that stand on the board. An action waits for nothing; what takes time goes on on a
// thread of its own, of which there are kMostAtATime at most. They are joined with the object, before which the sinks
// are stopped (JobOutput::stopSinks()), so that none of them goes on for long. Any thread.
class JobActions {
 public:
  static constexpr std::size_t kMostAtATime = 8;

  // All outlive the object; the documents may be null where none are kept.
  JobActions(JobOutput& output, JobFollower& follower, const KeptDocuments* documents)
      : m_output(output), m_follower(follower), m_documents(documents) {}
  ~JobActions();
  JobActions(const JobActions&) = delete;
  JobActions& operator=(const JobActions&) = delete;

  // Each begins the action; the result is empty, or why that cannot be, as a sentence for the person.

  // Ends a job that is not over. What has become of it then stands on the board.
  std::string cancel(std::uint64_t number);
  // Gives the document that is kept of the job to the sink of its printer once more, as a job of its own.
  std::string printAgain(std::uint64_t number);

 private:
  struct Running {
    std::thread thread;
    std::atomic<bool> isDone{false};
  };

  // False when there are too many already.
  bool start(std::function<void()> action);

  JobOutput& m_output;
  JobFollower& m_follower;
  const KeptDocuments* const m_documents;
  std::mutex m_lock;  // guards what follows
  std::list<Running> m_running;
};

}  // namespace printclient
