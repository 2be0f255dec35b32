#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/component.h"
#include "util/mutex.h"
#include "util/object_map.h"
#include "util/utl_string.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>

class ClientPrintJob;
class PrintServer;

// A port's reference to a print server. The class is known above this folder only: code that sets or uses the server
// includes its header, and a port's record can release it without.
class PrintServerReference {
 public:
  template <class Server>
  PrintServerReference& operator=(const CS_RCPtr<Server>& server) {
    m_server = nullptr;
    m_component = server;
    m_server = m_component ? server.get() : nullptr;
    return *this;
  }
  PrintServerReference& operator=(std::nullptr_t) {
    m_server = nullptr;
    m_component = nullptr;
    return *this;
  }

  PrintServer* get() const { return m_server; }
  PrintServer* operator->() const { return m_server; }
  PrintServer& operator*() const { return *m_server; }
  explicit operator bool() const { return m_server != nullptr; }

 private:
  CS_RCPtr<CS_Component> m_component;
  PrintServer* m_server = nullptr;  // the same object
};

// Bits of tagPort::flags.
inline constexpr std::uint32_t kPortHasDocument = 1;  // from the start to the end of a document
inline constexpr std::uint32_t kPortIsOpen = 2;

// Characters of a name in a port's record, terminator included.
inline constexpr std::size_t kPortNameSize = 260;

// One port. The port list has the records made and freed (ports/port_records.h); the handle that the spooler holds for
// a port is the address of its record. Every field starts as zero, null or the empty text, except where it says
// otherwise.
//
// lock serialises the work on one port. FindPort hands a record out with the lock held. The fields of the job in
// progress (printServer to jobId) are touched by the calls of that one job only, which come one after another.
struct tagPort {
  // The print server of the job in progress; stays after the job until the next one replaces it.
  PrintServerReference printServer;
  // The job in progress, owned by the port and freed by the job path.
  ClientPrintJob* job = nullptr;
  // The key of the port, cut to fit; what enumeration tells the spooler. Never changes.
  wchar_t portName[kPortNameSize] = {};
  // Emptied at the end of a job.
  wchar_t secondName[kPortNameSize] = {};
  std::uint32_t flags = 0;
  std::uint64_t reserved = 0;
  // The printer that the port's job is for, by which the job path opens it in the spooler.
  wchar_t printerName[kPortNameSize] = {};
  // The spooler's number of the job in progress.
  std::uint32_t jobId = 0;
  // When the session's printer list was last fetched, by GetTickCount, in milliseconds.
  std::uint32_t tickCount = 0;
  // The names of the session's printers, or null. Owned; guarded by lock. The values are placeholders.
  TObjectMap<UTL_String, void*>* cachedPrinters = nullptr;
  // 1 when the last request for the session's printers succeeded, which is also how it starts; 0 when it failed.
  std::int32_t listRequestSucceeded = 1;
  // Owned, made with the record.
  CriticalSection* lock = nullptr;
};
