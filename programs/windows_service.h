#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace programs {

// This process as a service of Windows: the sibling of ServiceManager's datagrams, reached through the same calls. The
// service manager hears that the program starts, when it is ready (ServiceManager::tell), that it stops, with a sign of
// progress each second, and how it ended: with the program's exit code as the service's own (1066 and the code), so
// that a code other than 0 counts as a failure which the recovery settings answer. A stop is asked of the program
// through StopRequest; one that has not ended kStopLimit after that is ended, and the event log says so.
//
// A service has no standard output. What it writes to its error output becomes entries of the event log, one for each
// line, of the source "MgPrintMon"; what it writes to its standard output is lost. One object in a process, made by
// run().
class WindowsService {
 public:
  static constexpr std::chrono::seconds kStopLimit{30};
  static constexpr std::chrono::milliseconds kProgress{1000};
  static constexpr DWORD kStartHint = 30000;      // milliseconds that it may be silent while it starts
  static constexpr DWORD kStopHint = 5000;        // and between two signs of progress while it stops
  static constexpr std::size_t kMaxEntries = 50;  // of the event log in one run

  // Runs the program as the service that the service manager has started this process for; returns its exit code when
  // it has ended. Nothing, and the program has not run, when nobody has started it as a service (1063).
  static std::optional<int> run(const std::function<int()>& program);
  // The one that this process is; null in every other process.
  static WindowsService* current();

  // The program serves now, and can be asked to stop. Any thread.
  void ready();
  // Called once, on a thread of its own, when the service is to stop.
  void onStop(std::function<void()> handler);
  // An entry of the event log about a failure. Any thread.
  void complain(const std::string& line);

 private:
  explicit WindowsService(const std::function<int()>& program) : m_program(program) {}

  static void WINAPI serve(DWORD count, LPWSTR* arguments);
  static DWORD WINAPI control(DWORD control, DWORD event, void* data, void* context);
  void serveNamed(const std::wstring& name);
  void tellLocked(DWORD state, DWORD hint, int code = 0);
  void stopLocked();
  void stop();

  const std::function<int()>& m_program;
  int m_code = 1;
  std::wstring m_name;
  SERVICE_STATUS_HANDLE m_handle = nullptr;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_ended;
  std::function<void()> m_onStop;
  DWORD m_state = SERVICE_STOPPED;
  DWORD m_checkPoint = 0;
  std::size_t m_entries = 0;
  bool m_hasEnded = false;
  std::thread m_stopper;
};

// What the program writes to its error output while one lives, line by line; its standard output goes nowhere. The
// outputs are as before when the object dies. One in a process.
class CapturedErrors {
 public:
  // The lines come on a thread of the object's own, without their ends.
  explicit CapturedErrors(std::function<void(const std::string&)> take);
  ~CapturedErrors();
  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;

 private:
  void read();

  const std::function<void(const std::string&)> m_take;
  int m_before[2] = {-1, -1};  // copies of the outputs' descriptors, where there were any
  int m_end = -1;              // of the pipe, to read from
  std::thread m_reader;
};

}  // namespace programs
