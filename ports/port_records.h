#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/component.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "util/mutex.h"
#include "util/object_map.h"
#include "util/utl_string.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

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

// One port. The port list has the records made and freed (PortRecords); the handle that the spooler holds for a port is
// the address of its record. Every field starts as zero, null or the empty text, except where it says otherwise.
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

// The records of all ports of this process, those of a list that a later one has replaced included: which of them are
// alive, how many calls work on each, and how many handles to it are open. A handle is a record's address and nothing
// more, so this is where a handle is told from an address that means nothing, or no longer the port it once was:
//
//  - a record is freed when its port is deleted, or by the last call that still works on it then;
//  - the address of a freed record is given to no other port while a handle to the freed one is open.
//
// Any thread may call everything. The lock inside is held for the length of a look-up only, never over a call of
// anybody else, so nothing that a call does on one port holds up another. Nothing here throws.
class PortRecords {
 public:
  struct Free {
    void operator()(tagPort* port) const noexcept;
  };
  // A record that nobody else can reach any more. What is left of its job is not freed with it.
  using Owner = std::unique_ptr<tagPort, Free>;

  // What is done about the job of a deleted port before its record is freed, when no call works on the port any more
  // and no lock is held.
  using JobEnd = void (*)(tagPort& port) noexcept;

  // What taking a record out leaves to its caller.
  struct Removed {
    Owner record;                        // null while calls work on it: the last one gets it from leave()
    CS_RCPtr<CS_Connection> connection;  // of the job in progress, for the caller to end; may be null
  };

  static PortRecords& instance() noexcept;

  PortRecords() = default;
  PortRecords(const PortRecords&) = delete;
  PortRecords& operator=(const PortRecords&) = delete;

  // A new record with its lock, alive until it is removed; null without memory.
  tagPort* make() noexcept;

  // No call enters the record from here on. For a record that is alive; its lock is not held.
  Removed remove(tagPort& port) noexcept;

  // A handle to a record that is alive has been handed out.
  void handleOpened(const tagPort& port) noexcept;
  // One has been given back, also when its port was deleted meanwhile. More of these than handles do nothing.
  void handleClosed(HANDLE handle) noexcept;

  // The record behind a handle, kept for the caller until it leaves; null when the handle is that of no live port.
  tagPort* enter(HANDLE handle) noexcept;
  // The record itself when the port was deleted and this was the last call on it, else null.
  Owner leave(tagPort& port) noexcept;

  // For a call that has entered. The port's deletion ends this connection; false when the port is deleted already.
  bool setConnection(const tagPort& port, const CS_RCPtr<CS_Connection>& connection) noexcept;
  // Whether the port that the call works on was deleted meanwhile.
  bool isDeleted(const tagPort& port) const noexcept;

 private:
  struct Entry {
    unsigned handles = 0;
    unsigned calls = 0;
    bool deleted = false;
    CS_RCPtr<CS_Connection> connection;
  };
  using Entries = std::map<const void*, Entry>;

  enum class Added { kYes, kAddressTaken, kNoMemory };
  Added add(const tagPort& port) noexcept;
  // Forgets a deleted record that is neither in use nor has a handle. The caller holds the lock.
  void forgetLocked(Entries::iterator entry) noexcept;

  mutable std::mutex m_lock;  // guards what follows
  Entries m_entries;          // by address
};

namespace mg {

// One call of the spooler on a port: finds the port behind its handle and keeps the record until the call is over,
// whatever becomes of the port meanwhile. The last call on a port that was deleted ends the port's job and frees the
// record. Declared outside of the operation whose clean-up needs the port, too; belongs to the call's thread. Holds no
// lock.
class PortCall {
 public:
  explicit PortCall(PortRecords::JobEnd jobEnd) : m_jobEnd(jobEnd) {}
  ~PortCall() {
    if (m_port == nullptr) return;
    const PortRecords::Owner deleted = PortRecords::instance().leave(*m_port);
    if (deleted != nullptr) m_jobEnd(*deleted);
  }
  PortCall(const PortCall&) = delete;
  PortCall& operator=(const PortCall&) = delete;

  // Once per call. Throws CS_Exception (3015) when the handle is that of no live port, so also for null and for
  // INVALID_HANDLE_VALUE.
  tagPort& enter(HANDLE handle) {
    m_port = PortRecords::instance().enter(handle);
    if (m_port == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    return *m_port;
  }

 private:
  const PortRecords::JobEnd m_jobEnd;
  tagPort* m_port = nullptr;
};

}  // namespace mg
