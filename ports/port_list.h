#pragma once

#include "ports/port_records.h"
#include "util/mutex.h"
#include "util/object_map.h"
#include "util/utl_string.h"

#include <windows.h>
#include <winspool.h>

// The header of the spooler makes macros of three names that the list has as operations. It is included here, so that
// they are gone for good in every file that knows the list.
#undef AddPort
#undef DeletePort
#undef EnumPorts

class Operation;

// The one list of the monitor's ports, in memory and in the registry. The monitor makes it when the spooler initialises
// it and deletes it when the module is unloaded; the spooler's threads call it, several at once.
//
// Each operation records what goes wrong on the default program monitor, ends with its closing line and answers with a
// failure result. Only AddNewPort lets a CS_Exception out. A null name counts as the empty one.
//
// Lock order: the list's lock, then the map's own lock or one port's lock.
class CPortList {
 public:
  explicit CPortList(const wchar_t* monitorName = L"Client Printer Port",
                     const wchar_t* description = L"Client Printer Port");
  // The records stay: the spooler may still hold their addresses.
  virtual ~CPortList();
  CPortList(const CPortList&) = delete;
  CPortList& operator=(const CPortList&) = delete;

  // The list that this module works with, null before it is initialised. Its owner sets it, and sets null before
  // deleting it.
  static CPortList* instance() noexcept;
  static void setInstance(CPortList* list) noexcept;

  // Adds a port for every value in the registry, creating the key when it is missing. A value whose name cannot be read
  // is passed over. The registry is read as the process, whatever user the thread impersonates; AddNewPort and
  // DeletePort change it as their caller, so that the registry decides whether that user may.
  void Load();

  // Adds a port to the list and to the registry. Returns 1 when a record was made, else 0; throws CS_Exception when the
  // registry refuses, and the record then stays in the list.
  DWORD AddNewPort(const wchar_t* name);

  // Adds a port to the list only; the caller holds the list's lock, or is the only one to know the list. A record that
  // the name had before is replaced and not freed. Returns 1, or 0 when there is no memory. The last argument has no
  // meaning.
  DWORD AddPort(const wchar_t* name, DWORD unused);

  // The port of that name with its lock held, for the caller to leave, or null.
  tagPort* FindPort(const wchar_t* name);

  // Takes the port out of the list and out of the registry and frees its record, once nobody holds its lock any more.
  // Calls that work on the port are not waited for: the connection of its job is ended, so that they find it lost, and
  // the last of them frees the record (ports/port_records.h) and does itself what jobEnd does here.
  // Returns 1 when the port was in the list, else 0; the registry decides nothing.
  DWORD DeletePort(const wchar_t* name, PortRecords::JobEnd jobEnd = nullptr);

  // The spooler's EnumPorts, for level 1 (PORT_INFO_1W) and level 2 (PORT_INFO_2W): fixed entries from the start of
  // the buffer, texts packed down from its end. server is ignored; size and *needed are in bytes. Returns TRUE, or
  // FALSE with the last error set: 122 when the buffer is smaller than *needed, 124 for another level while there are
  // ports.
  //
  // *needed is what GetPortSize reserves for each port, or what the texts really take where names longer than that
  // reservation need more.
  BOOL EnumPorts(const wchar_t* server, DWORD level, BYTE* buffer, DWORD size, DWORD* needed, DWORD* returned);

  // Bytes that enumeration reserves per port: enough for a name of 14 characters. 0 for another level than 1 or 2.
  DWORD GetPortSize(DWORD level);

  // Writes a port's fixed entry, and its texts below end. Returns the lowest address written; for another level than 1
  // or 2 that is end, and nothing is written. The caller has made sure of the room.
  BYTE* CopyPortToBuffer(const tagPort* port, DWORD level, BYTE* entry, BYTE* end);

 private:
  // Bytes that the enumeration of all ports takes. The caller holds the list's lock.
  DWORD neededBytesLocked(DWORD level);
  // Writes every port and counts them in *returned; returns the error code of the enumeration. Likewise.
  DWORD copyAllLocked(DWORD level, BYTE* buffer, DWORD size, DWORD* returned);
  // Takes the record out, enters its lock and empties its cache; null when there was no record. Likewise.
  tagPort* takeOutLocked(const wchar_t* name, DWORD& found, Operation& operation);
  // Leaves the lock of a record that was taken out, and ends its job and the record.
  static void endPort(tagPort& port, PortRecords::JobEnd jobEnd);

  // Both from _wcsdup; null only when there was no memory for them.
  wchar_t* m_description = nullptr;
  wchar_t* m_monitorName = nullptr;
  CriticalSection m_lock;
  TObjectMap<UTL_String, tagPort*> m_ports;
};

namespace mg {

// The module's port list. Throws CS_Exception (3014) before the module is initialised and after its end.
CPortList& portList();

// A port of the list with its lock held for the rest of the scope; empty when the list has no port of that name. The
// lock is left before anything is recorded about the operation, as long as the scope lies inside its body. Belongs to
// the thread that made it.
class HeldPort {
 public:
  HeldPort(CPortList& list, const wchar_t* name);
  ~HeldPort();
  HeldPort(const HeldPort&) = delete;
  HeldPort& operator=(const HeldPort&) = delete;

  tagPort* get() const { return m_port; }
  tagPort* operator->() const { return m_port; }
  explicit operator bool() const { return m_port != nullptr; }

 private:
  tagPort* m_port;
};

// The port that serves a session: "CPP" and the session's number. The text ends within its array.
struct SessionPortName {
  explicit SessionPortName(unsigned int sessionId);
  wchar_t text[16];
};

}  // namespace mg
