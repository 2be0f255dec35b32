#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "ports/tag_port.h"

#include <windows.h>

#include <map>
#include <memory>
#include <mutex>

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
