#pragma once

#include "monitor/entries.h"
#include "ports/port_list.h"
#include "ports/port_records.h"
#include "session/client_print_job.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor/fake_queue.h"
#include "tests/support/monitor_world.h"
#include "tests/support/own_temporary_path.h"

#include <winspool.h>

#include <gtest/gtest.h>
#include <string>

// What the tests of the job path share: one port, a printer "Laser" that session 5's client brought along, its print
// client behind the scripted server, and a queue.
class JobPath : public testing::Test {
 protected:
  JobPath() {
    CPortList::setInstance(&m_list);
    m_list.AddPort(L"CPP5", 0);
    HANDLE handle = nullptr;
    MGOpenPort(nullptr, text(L"CPP5"), &handle);
    m_port = static_cast<tagPort*>(handle);
    m_peer.answer("PortMonitorClient", 5, [this](corvane::ValueWriter& reply) {
      reply.writeBoolean(true);
      reply.writeBoolean(true);
      reply.writeText(L"Client Laser");
      for (int i = 0; i < 7; ++i)
        reply.writeBoolean(false);
      reply.writeBoolean(false);
      reply.writeInt(m_printerValue);
      reply.writeInt(0);
    });
    m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) {
      reply.writeBoolean(true);
      reply.writeInt(1);
      reply.writeText(L"Quillfern::NTR::PrintClient");
      for (const int number : {4, 0, 1, 0})
        reply.writeInt(number);
    });
    m_peer.answer("PrintClient", 3, [this](corvane::ValueWriter& reply) { reply.writeInt(m_endResult); });
  }
  ~JobPath() override {
    CPortList::setInstance(nullptr);
    if (m_port == nullptr) return;
    // Ends the stream of a test that did not end its job, together with its connection.
    if (m_port->printServer) {
      CS_Connection::destroy(m_port->printServer->getConnection(), true);
      m_port->printServer = nullptr;
    }
    delete m_port->job;
    PortRecords::instance().remove(*m_port);
  }

  static wchar_t* text(const wchar_t* constant) { return const_cast<wchar_t*>(constant); }
  BOOL start(const wchar_t* printer = L"Laser", DWORD job = 17) {
    return MGStartDocPort(m_port, text(printer), job, 1, reinterpret_cast<LPBYTE>(&m_document));
  }
  BOOL write(const std::string& bytes) {
    return MGWritePort(m_port, reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data())),
                       static_cast<DWORD>(bytes.size()), &m_written);
  }
  BOOL end() { return MGEndDocPort(m_port); }
  ScriptedPeer::Lines records() const { return m_world.records().lines(); }
  static std::string closing(const std::string& name) { return "0x40000008: Stack Trace: MgPrintMon - " + name + "()"; }
  // The port after a job that could not be started, or before any.
  void expectIdlePort() const {
    EXPECT_EQ(m_port->job, nullptr);
    EXPECT_EQ(m_port->flags, kPortIsOpen);
    EXPECT_EQ(m_port->jobId, 0u);
    EXPECT_STREQ(m_port->printerName, L"");
  }

  OwnTemporaryPath m_files;  // before the seams, which write down its calls otherwise
  ImportSeams m_seams;
  mutable MonitorWorld m_world;
  ScriptedPeer& m_peer = m_world.peer();
  FakeQueue m_queue;
  CPortList m_list;
  tagPort* m_port = nullptr;  // null when the test has deleted it
  int m_printerValue = 1;
  int m_endResult = 1;
  DWORD m_written = 99;
  DOC_INFO_1W m_document{text(L"letter.txt"), nullptr, text(L"RAW")};
};
