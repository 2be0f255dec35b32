#pragma once

#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <string_view>
#include <vector>

// Takes the lines of the local monitor for as long as it lives and gives them back without their time stamps. The last
// line is kept without memory. One at a time; read by the test when nothing writes any more.
class LocalLog {
 public:
  LocalLog() { corvane::LocalMonitor::instance().setSink(std::make_unique<Sink>(*this)); }
  ~LocalLog() {
    CS_TraceEntry::enable(false);
    corvane::LocalMonitor::instance().setSink(nullptr);
  }
  LocalLog(const LocalLog&) = delete;
  LocalLog& operator=(const LocalLog&) = delete;

  // Switches tracing on until the end of the test.
  void trace() { CS_TraceEntry::enable(true); }
  void clear() { m_lines.clear(); }

  // "enter MGShutdown", "leave MGShutdown", "#4 failure: text".
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    for (const std::string& line : m_lines)
      result.push_back(withoutStamp(line));
    return result;
  }
  // The operations that were entered, in order.
  std::vector<std::string> entered() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
      if (line.rfind("enter ", 0) == 0) result.push_back(line.substr(6));
    }
    return result;
  }
  // The records, "failure: text", without the number of their report.
  std::vector<std::string> records() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
      if (line[0] == '#') result.push_back(line.substr(line.find(' ') + 1));
    }
    return result;
  }
  // The numbers of the reports that records belong to, each once, in the order in which they begin.
  std::vector<std::string> reports() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
      const std::string number = line.substr(0, line.find(' '));
      if (line[0] == '#' && std::find(result.begin(), result.end(), number) == result.end()) result.push_back(number);
    }
    return result;
  }
  std::string last() const { return withoutStamp(std::string(m_last.data(), m_lastSize)); }
  void forgetLast() { m_lastSize = 0; }

 private:
  class Sink : public corvane::LogSink {
   public:
    explicit Sink(LocalLog& log) : m_log(log) {}
    void write(std::string_view line) noexcept override {
      m_log.m_lastSize = line.copy(m_log.m_last.data(), m_log.m_last.size());
      try {
        m_log.m_lines.emplace_back(line);
      } catch (...) {  // memory is short on purpose
      }
    }

   private:
    LocalLog& m_log;
  };

  // Date, time, its offset, process and thread.
  static std::string withoutStamp(const std::string& line) {
    std::size_t at = 0;
    for (int blank = 0; blank < 4; ++blank)
      at = line.find(' ', at) + 1;
    return line.substr(at);
  }

  std::vector<std::string> m_lines;
  std::array<char, 4096> m_last{};
  std::size_t m_lastSize = 0;
};
