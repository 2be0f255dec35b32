#pragma once

#include "corvane/base/text.h"
#include "corvane/records/exception.h"

#include <exception>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <utility>

// A thread of a test. It is joined in any case, also when an assertion or an exception leaves the test early, and what
// is thrown on it fails the test with its words instead of ending the process.
class JoinedThread {
 public:
  JoinedThread() = default;
  // wake ends what the thread may be waiting for; called when the test is left before join().
  template <class Body>
  explicit JoinedThread(Body body, std::function<void()> wake = nullptr)
      : m_wake(std::move(wake)), m_thread([body = std::move(body)]() mutable { run(body); }) {}
  JoinedThread(JoinedThread&&) = default;
  JoinedThread& operator=(JoinedThread&& other) noexcept {
    end();
    m_wake = std::move(other.m_wake);
    m_thread = std::move(other.m_thread);
    return *this;
  }
  ~JoinedThread() { end(); }

  bool joinable() const { return m_thread.joinable(); }
  void join() { m_thread.join(); }

 private:
  template <class Body>
  static void run(Body& body) {
    try {
      body();
    } catch (const CS_Exception& exception) {
      ADD_FAILURE() << "thrown on a thread: " << exception.number() << " " << corvane::toUtf8(exception.detail());
    } catch (const std::exception& exception) {
      ADD_FAILURE() << "thrown on a thread: " << exception.what();
    }
  }

  void end() {
    if (!m_thread.joinable()) return;
    if (m_wake) m_wake();
    m_thread.join();
  }

  std::function<void()> m_wake;
  std::thread m_thread;
};
