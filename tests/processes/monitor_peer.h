#pragma once

#include "corvane/components/connection.h"
#include "corvane/records/program_monitor.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace tests {

// The port monitor's side of one job, spoken by the test: one connection with the components that a job has. Every
// operation throws CS_Exception when it fails. Used by one thread.
class MonitorPeer {
 public:
  explicit MonitorPeer(int port);
  // With a key, the monitor's or, as an impostor, another one.
  MonitorPeer(int port, const corvane::Identity& identity, const std::string& keyFile);
  ~MonitorPeer();
  MonitorPeer(const MonitorPeer&) = delete;
  MonitorPeer& operator=(const MonitorPeer&) = delete;

  struct PrinterInfo {
    std::array<std::optional<std::wstring>, 8> texts;
    bool flag = false;
    int value = 0;
    int secondValue = 0;
  };
  struct Names {
    std::wstring job, printer, document, dataType;
  };

  bool attach(const std::wstring& printer, int processId = 1234);
  std::optional<PrinterInfo> printerInfo(const std::wstring& printer);
  std::vector<std::wstring> printerList(int session);
  bool launch(const std::wstring& program, const std::wstring& arguments, const wchar_t* extra);

  void startJob(const Names& names, const std::array<int, 4>& settings, int copies = 1);
  void writeJob(const std::string& data);
  // A piece that says it has more bytes than come.
  void writeBrokenPiece(const std::string& data, int saidLength);
  int endJob(unsigned timeoutMilliseconds = 60000);

  // Introduces this process to the server's log and sends one record.
  void record(unsigned long processId, const wchar_t* module, int level, const wchar_t* text);
  // The two records of one report that a failure leaves which is thrown and caught.
  void recordThrown(unsigned long processId, const wchar_t* module, const wchar_t* text);
  void notify(unsigned long processId, const wchar_t* module, const CS_Notice& notice);

  const CS_RCPtr<CS_Connection>& connection() const { return m_connection; }
  const CS_RCPtr<CS_Component>& portMonitor() const { return m_portMonitor; }

 private:
  void dial(int port);
  CS_RCPtr<CS_ProgramMonitor> makeMonitor(unsigned long processId, const wchar_t* module);
  CS_RCPtr<CS_Component> makeComponent(CS_Component& owner, const wchar_t* local, const wchar_t* remote);

  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_bridge;
  CS_RCPtr<CS_Component> m_portMonitor;
  CS_RCPtr<CS_Component> m_printServer;
  std::wstring m_jobName;
};

}  // namespace tests
