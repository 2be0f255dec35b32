#include "bench/port_jobs.h"

#include "bench/samples.h"
#include "tests/support/spooler/stand_in_queue.h"

#include <filesystem>
#include <utility>

PortJobs::PortJobs(const std::wstring& portName, std::wstring printer)
    : m_monitor(mg::support::loadMonitor()), m_printer(std::move(printer)) {
  using namespace mg::support;
  useStandInQueue(GetModuleHandleW(L"MgPrintMon.dll"), QueueWords::kNotSaid);
  std::wstring name = portName;
  if (!m_monitor.operations->pfnOpenPort(m_monitor.monitor, name.data(), &m_port)) {
    bench::giveUp("the module does not know the port");
  }
}

PortJobs::~PortJobs() {
  m_monitor.operations->pfnClosePort(m_port);
}

namespace {

void require(BOOL isDone, const char* what) {
  if (!isDone) bench::giveUp(std::string("the ") + what + " failed; the logs of aps and of the module say why");
}

}  // namespace

void PortJobs::begin() {
  // Each a name of its own: a print client numbers documents of one name, and looks for the next free number.
  std::wstring printer = m_printer, document = L"bench " + std::to_wstring(++m_count), type = L"RAW";
  DOC_INFO_1W info{document.data(), nullptr, type.data()};
  const auto start = m_monitor.operations->pfnStartDocPort;
  require(start(m_port, printer.data(), 1, 1, reinterpret_cast<BYTE*>(&info)), "start of a document");
}

void PortJobs::write(std::span<const unsigned char> piece) const {
  DWORD written = 0;
  auto* const bytes = const_cast<unsigned char*>(piece.data());  // the entry only reads
  const BOOL isTaken = m_monitor.operations->pfnWritePort(m_port, bytes, static_cast<DWORD>(piece.size()), &written);
  require(isTaken && written == piece.size(), "write");
}

void PortJobs::end() const {
  require(m_monitor.operations->pfnEndDocPort(m_port), "end of a document");
}

void PortJobs::print(std::span<const unsigned char> piece, std::uint64_t total) {
  begin();
  for (std::uint64_t left = total; left > 0;) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
    write(piece.first(size));
    left -= size;
  }
  end();
}

void PortJobs::printDocument(std::span<const unsigned char> document, std::size_t size) {
  begin();
  for (; !document.empty(); document = document.subspan(std::min(size, document.size())))
    write(document.first(std::min(size, document.size())));
  end();
}

void emptyFolder(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".part") std::filesystem::remove(entry.path());
  }
}
