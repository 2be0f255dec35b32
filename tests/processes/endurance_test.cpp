// Many jobs one after the other: what the server and the clients hold at the end is what they held at the beginning.
// The times of the jobs are printed, for scripts/test-long to judge.

#include "corvane/records/exception.h"
#include "programs/text.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_watch.h"
#include "tests/processes/scene.h"
#include "tests/support/sanitized.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace tests {
namespace {

using ::testing::IsEmpty;
using Microseconds = std::vector<long long>;

int numberOfJobs(int inLongTests) {
  if (std::getenv("MG_LONG_TESTS") != nullptr) return inLongTests;
  return kSanitized ? 150 : 1100;  // more than the components that a connection may have at a time
}

// What a process may have grown by between the two looks: what the allocator keeps, and not what each job leaves.
constexpr std::size_t kGrowthKilobytes = 1024;

long long median(Microseconds times, std::size_t from, std::size_t count) {
  const auto first = times.begin() + static_cast<std::ptrdiff_t>(from);
  const auto middle = first + static_cast<std::ptrdiff_t>(count / 2);
  std::nth_element(first, middle, first + static_cast<std::ptrdiff_t>(count));
  return *middle;
}

// One line that says how long the first and the last thousand jobs took each.
void tellTimes(const char* what, const Microseconds& times) {
  const std::size_t count = std::min<std::size_t>(1000, times.size() / 2);
  const long long first = median(times, 0, count);
  const long long last = median(times, times.size() - count, count);
  std::printf("endurance: %s: %zu jobs, median of the first %zu %lld us, of the last %zu %lld us, ratio %.3f\n", what,
              times.size(), count, first, count, last, static_cast<double>(last) / static_cast<double>(first));
}

// The same in processor time of the server and the clients, which other work of the machine does not lengthen.
void tellProcessor(const char* what, int jobs, double first, double last) {
  std::printf("endurance: %s: processor time of the first %d jobs %.0f us each, of the last %.0f us, ratio %.3f\n",
              what, jobs, first * 1e6 / jobs, last * 1e6 / jobs, last / first);
}

double processorTime(const std::vector<Held>& all) {
  double sum = 0;
  for (const Held& held : all)
    sum += held.processorSeconds;
  return sum;
}

void append(Microseconds& times, const Microseconds& others) {
  times.insert(times.end(), others.begin(), others.end());
}

void tellHeld(const std::string& who, const Held& before, const Held& after) {
  std::printf("endurance: %s: %zu and %zu KiB, %zu and %zu threads, %zu and %zu descriptors\n", who.c_str(),
              before.kilobytes, after.kilobytes, before.threads, after.threads, before.descriptors, after.descriptors);
}

// Data that tell the jobs apart.
std::string dataOf(int session, int job) {
  std::string data(1, static_cast<char>(0x1B));  // it is no text
  while (data.size() < 10000)
    data += std::to_string(session) + ":" + std::to_string(job) + ".";
  return data;
}

// Prints one document as the port monitor does, and takes it from the client's folder; returns how long the printing
// took. A job that did not arrive as it was sent fails the test.
long long timeOfJob(Scene& scene, int session, int job) {
  const std::string data = dataOf(session, job);
  const auto begin = std::chrono::steady_clock::now();
  int result = 0;
  {
    MonitorPeer peer(scene.port());
    const std::wstring printer = L"Laser (session " + std::to_wstring(session) + L")";
    if (!peer.printerInfo(printer) || !peer.attach(printer)) throw std::runtime_error("the job is refused");
    peer.startJob({L"job", L"Laser", L"Report", L"RAW"}, {1, 1, 1, 1});
    for (std::size_t at = 0; at < data.size(); at += 4096)
      peer.writeJob(data.substr(at, 4096));
    result = peer.endJob();
  }
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(scene.content(session, "Report.prn") == data) << "session " << session << ", job " << job;
  std::filesystem::remove(scene.output(session) / "Report.prn");
  return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

class Endurance : public ::testing::Test {
 protected:
  void startClients(int count) {
    for (int i = 0; i < count; ++i)
      m_clients.push_back(m_scene.startClient(kFirstSession + i, {"Laser,format=raw"}));
  }

  // The jobs of every client, each client's one after the other.
  Microseconds print(int jobsOfEachClient) {
    Microseconds times;
    std::mutex lock;
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < m_clients.size(); ++i) {
      threads.emplace_back([&, session = kFirstSession + static_cast<int>(i)] {
        int job = 0;
        try {
          for (; job < jobsOfEachClient && !HasFailure(); ++job) {
            const long long time = timeOfJob(m_scene, session, job);
            const std::lock_guard<std::mutex> guard(lock);
            times.push_back(time);
          }
        } catch (const CS_Exception& failure) {
          ADD_FAILURE() << "session " << session << ", job " << job << ": " << programs::describe(failure);
        } catch (const std::exception& failure) {
          ADD_FAILURE() << "session " << session << ", job " << job << ": " << failure.what();
        }
      });
    }
    for (std::jthread& thread : threads)
      thread.join();
    return times;
  }

  // Until the server has parked the connections of all clients: it has no thread less for a while.
  void awaitParked() const {
    const auto looks = std::chrono::milliseconds(100);
    std::size_t threads = 0;
    for (int same = 0; same < 20; ++same) {
      const std::size_t now = heldBy(m_scene.server().id()).threads;
      if (now != std::exchange(threads, now)) same = 0;
      std::this_thread::sleep_for(looks);
    }
  }

  pid_t process(std::size_t i) const { return i == 0 ? m_scene.server().id() : m_clients[i - 1]->id(); }

  // The server and the clients, once they are as idle as they were then.
  std::vector<Held> atRest(const std::vector<Held>& idle) const {
    std::vector<Held> all;
    for (std::size_t i = 0; i < idle.size(); ++i)
      all.push_back(heldAtRest(process(i), idle[i]));
    return all;
  }

  // Whether a server and a client that have done all this take longer than fresh ones: jobs in turns, so that whatever
  // else the machine does meets both alike.
  void tellTurns(const char* what, int jobs) {
    Scene fresh;
    const auto client = fresh.startClient(kFirstSession, {"Laser,format=raw"});
    Microseconds old, young;
    for (int job = 0; job < jobs + 100; ++job) {
      const long long oldTime = timeOfJob(m_scene, kFirstSession, job);
      const long long youngTime = timeOfJob(fresh, kFirstSession, job);
      if (job < 100) continue;  // the fresh ones warm up
      old.push_back(oldTime);
      young.push_back(youngTime);
    }
    const long long oldMedian = median(old, 0, old.size());
    const long long youngMedian = median(young, 0, young.size());
    std::printf(
        "endurance: %s: %d jobs in turns, median after all these %lld us, with fresh processes %lld us, ratio %.3f\n",
        what, jobs, oldMedian, youngMedian, static_cast<double>(oldMedian) / static_cast<double>(youngMedian));
  }

  void run(const char* what, int clients, int jobs) {
    startClients(clients);
    awaitParked();
    std::vector<Held> idle;
    for (std::size_t i = 0; i <= m_clients.size(); ++i)
      idle.push_back(heldBy(process(i)));
    // Memory is compared once everything has been used; time by tenths, at either end.
    const int tenth = jobs / clients / 10;
    Microseconds times = print(tenth);
    const std::vector<Held> before = atRest(idle);
    append(times, print(jobs / clients - 2 * tenth));
    const std::vector<Held> late = atRest(idle);
    append(times, print(tenth));
    const std::vector<Held> after = atRest(idle);
    ASSERT_EQ(times.size(), static_cast<std::size_t>(jobs / clients * clients));
    tellProcessor(what, tenth * clients, processorTime(before) - processorTime(idle),
                  processorTime(after) - processorTime(late));

    tellTimes(what, times);
    for (std::size_t i = 0; i < idle.size(); ++i) {
      const std::string who = i == 0 ? "aps" : "printclient of session " + std::to_string(kFirstSession + i - 1);
      tellHeld(who, before[i], after[i]);
      EXPECT_EQ(after[i].threads, idle[i].threads) << who;
      EXPECT_EQ(after[i].descriptors, idle[i].descriptors) << who;
      if (!kSanitized) {
        EXPECT_LE(after[i].kilobytes, before[i].kilobytes + kGrowthKilobytes) << who;
      }
    }
    for (int i = 0; i < clients; ++i)
      EXPECT_THAT(m_scene.files(kFirstSession + i), IsEmpty());
    tellTurns(what, std::min(1000, jobs / 20));
  }

  static constexpr int kFirstSession = 5;
  Scene m_scene;
  std::vector<std::unique_ptr<ChildProcess>> m_clients;
};

TEST_F(Endurance, JobsThroughOneClientLeaveNothingBehindInItOrInTheServer) {
  run("one client", 1, numberOfJobs(20000));
}

TEST_F(Endurance, JobsOfSeveralClientsLeaveNothingBehindInTheServer) {
  run("eight clients", 8, numberOfJobs(100000));
}

}  // namespace
}  // namespace tests
