#include "tests/sweeps/job_scenario.h"

#include "corvane/base/text.h"
#include "monitor/entries.h"
#include "ports/port_records.h"
#include "session/client_print_job.h"
#include "tests/sweeps/ledger.h"
#include "tests/sweeps/windows_seams.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace {

wchar_t* text(const wchar_t* constant) {
  return const_cast<wchar_t*>(constant);
}

BOOL write(HANDLE port, const std::string& bytes) {
  DWORD written = 0;
  const BOOL result = MGWritePort(port, reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data())),
                                  static_cast<DWORD>(bytes.size()), &written);
  if ((result != FALSE) != (written == bytes.size())) ADD_FAILURE() << "a write of " << written << " bytes";
  return result;
}

}  // namespace

JobScenario::JobScenario(World& world, const Kind& kind) : m_world(world), m_kind(kind) {
  const std::string data = kind.data;
  m_first = data.substr(0, data.size() / 2);
  m_second = data.substr(data.size() / 2);
  // What a converter's process brings with it is swept by the conversions alone.
  windows_seams::convertQuickly();
  answer();
}

void JobScenario::answer() {
  m_world.peer().answer("PortMonitorClient", 5, [this](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    for (int i = 0; i < 8; ++i) {
      reply.writeBoolean(true);
      reply.writeText(L"a text of the printer");
    }
    reply.writeBoolean(false);
    reply.writeInt(m_kind.printerValue);
    reply.writeInt(0);
  });
  m_world.peer().answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(1);
    reply.writeText(L"Quillfern::NTR::PrintClient");
    for (const int number : {4, 0, 1, 0})
      reply.writeInt(number);
  });
  m_world.peer().answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  // As a print client does: a document of which nothing came is not printed.
  m_world.peer().answer("PrintClient", 3, [this](corvane::ValueWriter& reply) {
    reply.writeInt(m_world.peer().bytes().empty() ? -1 : 1);
  });
}

void JobScenario::prepare() {
  m_world.bringUpModule();
  MGOpenPort(nullptr, text(L"CPP7"), &m_port);
}

void JobScenario::run() {
  windows_seams::forgetCommand();
  windows_seams::advance(1000);
  DOC_INFO_1W document{text(L"letter.txt"), nullptr, text(L"RAW")};
  m_ended = FALSE;
  m_started = MGStartDocPort(m_port, text(m_kind.printer), 17, 1, reinterpret_cast<LPBYTE>(&document));
  if (!m_started) return;
  if (m_kind.deliveryMode != 0) {
    static_cast<tagPort*>(m_port)->job->settings[protocol::kDeliverySetting] = m_kind.deliveryMode;
  }
  // A spooler ends what it started, also after a write that failed.
  if (write(m_port, m_first)) write(m_port, m_second);
  m_ended = MGEndDocPort(m_port);
}

bool JobScenario::clientWasAsked(const char* request) const {
  const ScriptedPeer::Lines lines = m_world.peer().lines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(request) != std::string::npos; });
}

bool JobScenario::clientHasAll() const {
  const std::vector<unsigned char> bytes = m_world.peer().bytes();
  const std::string text(bytes.begin(), bytes.end());
  // A file that was measured and then not read at all is sent as zeros; what cannot be looked at counts as PostScript
  // and is converted.
  const bool isCollected = m_kind.printerValue == 3;
  const bool isZeros = text.find_first_not_of('\0') == std::string::npos;
  return (text == m_kind.delivered || (isCollected && (isZeros || text == kConvertedData))) &&
         clientWasAsked("StartJob") && clientWasAsked("EndJob");
}

void JobScenario::check() {
  // The process's own connection stays, and nothing else.
  const int staying = m_kind.goesToNotepad ? 1 : 0;
  EXPECT_LE(ledger::countOpen(), static_cast<std::size_t>(staying)) << "the connection of the job is still open";
  m_world.settle(staying);
  const auto& port = *static_cast<const tagPort*>(m_port);
  if (m_ended) {
    EXPECT_TRUE(clientHasAll()) << "reported as printed, and is not";
  }
  if (!m_started) {
    EXPECT_EQ(port.flags, kPortIsOpen);
    EXPECT_EQ(port.jobId, 0u);
    EXPECT_STREQ(port.printerName, L"");
  }
  EXPECT_EQ(port.job, nullptr);
  // One file is left when its deletion is what failed, and the text that notepad is to print is left on purpose.
  m_files = m_world.takeTemporaryFiles();
  EXPECT_LE(m_files, m_kind.goesToNotepad ? 2 : 1);
  m_world.peer().clear();
}

void JobScenario::checkWhole() {
  EXPECT_EQ(m_started, TRUE);
  EXPECT_EQ(m_ended, m_kind.goesToNotepad ? FALSE : TRUE);
  EXPECT_EQ(m_files, m_kind.goesToNotepad ? 1 : 0);
  EXPECT_EQ(windows_seams::lastQueueCommand(), DWORD{JOB_CONTROL_SENT_TO_PRINTER});
}

void JobScenario::tidy() {
  MGClosePort(m_port);
  m_world.takeDownModule();
  m_world.settle(0);
  m_world.peer().clear();
}
