#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

// The spooler's queue as the tests of the job path see it: every call is written down with its arguments, and succeeds
// unless the test says otherwise. Works until the test's ImportSeams ends; one at a time.
//
//   open Laser                   without defaults, as for the number of copies
//   open Laser 0xf000c           with all rights
//   job 17 level 2
//   set job 17 level 0 command 5
//   close printer                "close printer null" for a null handle
//   close handle
class FakeQueue {
 public:
  FakeQueue();
  FakeQueue(const FakeQueue&) = delete;
  FakeQueue& operator=(const FakeQueue&) = delete;

  std::vector<std::string> calls() const { return m_calls; }
  void clear() { m_calls.clear(); }
  // Puts a line of the test's own between the calls.
  void note(const std::string& line) { m_calls.push_back(line); }
  // Opening with all rights, and setting a job, fail from now on.
  void refuseOpen() { m_refusesOpen = true; }
  void refuseSetJob(DWORD error = ERROR_ACCESS_DENIED) {
    m_refusesSetJob = true;
    m_setJobError = error;
  }
  // Called once, within the next call that is written down as this.
  void whenAsked(const std::string& call, std::function<void()> action) { m_actions[call] = std::move(action); }
  void setCopies(short copies) { m_copies = copies; }
  void setPages(DWORD pages, bool isSpooling) {
    m_pages = pages;
    m_isSpooling = isSpooling;
  }

 private:
  void watchPrinter();
  void watchJob();

  void enter(const std::string& call);

  std::vector<std::string> m_calls;
  std::map<std::string, std::function<void()>> m_actions;
  bool m_refusesOpen = false;
  bool m_refusesSetJob = false;
  DWORD m_setJobError = ERROR_SUCCESS;
  short m_copies = 1;
  DWORD m_pages = 0;
  bool m_isSpooling = false;
};
