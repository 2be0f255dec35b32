#pragma once

#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

// A program monitor that keeps what it is given, as golden lines in order: "0x4000000a: text", "10: text" for a record
// of text and "10: number 3015" for a number; another category than 0x80080000 is appended. Any thread may record.
class RecordingMonitor : public CS_ProgramMonitor {
 public:
  std::vector<std::string> lines() const {
    const std::lock_guard guard(m_lock);
    return m_lines;
  }
  // Apart from the records: a notice is none.
  std::vector<CS_Notice> notices() const {
    const std::lock_guard guard(m_lock);
    return m_notices;
  }
  void notify(const CS_Notice& notice) noexcept override {
    const std::lock_guard guard(m_lock);
    try {
      m_notices.push_back(notice);
    } catch (...) {
      // An allocation that fails on purpose fails once.
      m_notices.push_back(notice);
    }
  }
  int flushes() const {
    const std::lock_guard guard(m_lock);
    return m_flushes;
  }
  void clear() {
    const std::lock_guard guard(m_lock);
    m_lines.clear();
    m_notices.clear();
    m_flushes = 0;
  }

 protected:
  void write(const CS_Record& record) noexcept override {
    char level[32];
    std::snprintf(level, sizeof level,
                  record.level > 0xFFFF ? "0x%08x: " : "%d: ", static_cast<unsigned>(record.level));
    std::string line = level;
    line += record.number != 0 ? "number " + std::to_string(record.number) : corvane::toUtf8(record.text);
    if (record.category != corvane::kCategory) line += " [category " + std::to_string(record.category) + "]";
    const std::lock_guard guard(m_lock);
    m_lines.push_back(std::move(line));
  }
  void flush() noexcept override {
    const std::lock_guard guard(m_lock);
    ++m_flushes;
  }

 private:
  mutable std::mutex m_lock;
  std::vector<std::string> m_lines;
  std::vector<CS_Notice> m_notices;
  int m_flushes = 0;
};

// Makes a recording monitor the default one for a test.
class RecordingScope {
 public:
  RecordingScope() : m_monitor(new RecordingMonitor) { CS_ProgramMonitor::setDefaultMonitor(m_monitor.get()); }
  ~RecordingScope() { CS_ProgramMonitor::setDefaultMonitor(nullptr); }
  RecordingScope(const RecordingScope&) = delete;
  RecordingScope& operator=(const RecordingScope&) = delete;

  std::vector<std::string> lines() const { return m_monitor->lines(); }
  std::vector<CS_Notice> notices() const { return m_monitor->notices(); }
  // How often report(true) reached the monitor.
  int reports() const { return m_monitor->flushes(); }
  void clear() { m_monitor->clear(); }
  RecordingMonitor& monitor() { return *m_monitor; }

 private:
  CS_RCPtr<RecordingMonitor> m_monitor;
};
