#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "ports/port_list.h"
#include "util/mutex.h"

#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <limits>

namespace {

// Characters that enumeration reserves for a port's name, terminator included.
constexpr std::size_t kReservedName = 15;

// A list that was made without memory for its texts tells the spooler empty ones.
const wchar_t* toldText(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

std::size_t textBytes(const wchar_t* text) {
  return (std::wcslen(toldText(text)) + 1) * sizeof(wchar_t);
}

// Places a text just below end and returns where it starts. Copied as bytes: nobody promises that the end of the
// spooler's buffer is even.
BYTE* placeBelow(BYTE* end, const wchar_t* text) {
  const std::size_t bytes = textBytes(text);
  std::memcpy(end - bytes, toldText(text), bytes);
  return end - bytes;
}

template <typename Info>
void placeEntry(BYTE* entry, const Info& info) {
  std::memcpy(entry, &info, sizeof info);
}

wchar_t* asText(BYTE* place) {
  return reinterpret_cast<wchar_t*>(place);
}

std::size_t entrySize(DWORD level) {
  if (level == 1) return sizeof(PORT_INFO_1W);
  if (level == 2) return sizeof(PORT_INFO_2W);
  return 0;
}

}  // namespace

BOOL CPortList::EnumPorts(const wchar_t* /*server*/, DWORD level, BYTE* buffer, DWORD size, DWORD* needed,
                          DWORD* returned) {
  CS_TraceEntry trace(L"CPortList::EnumPorts()");
  Operation operation(L"Stack Trace: CPortList::EnumPorts()");
  DWORD error = ERROR_GEN_FAILURE;
  operation.run([&] {
    if (needed == nullptr || returned == nullptr || (buffer == nullptr && size != 0)) {
      error = ERROR_INVALID_PARAMETER;
      throw CS_Exception(corvane::kBadArgument, nullptr);
    }
    const Synchronized guard(m_lock);
    *needed = neededBytesLocked(level);
    error = *needed > size ? ERROR_INSUFFICIENT_BUFFER : copyAllLocked(level, buffer, size, returned);
  });
  if (error == ERROR_SUCCESS) return TRUE;
  SetLastError(error);
  return FALSE;
}

DWORD CPortList::GetPortSize(DWORD level) {
  CS_TraceEntry trace(L"CPortList::GetPortSize()");
  std::size_t size = entrySize(level);
  if (size != 0) size += kReservedName * sizeof(wchar_t);
  if (level == 2) size += textBytes(m_monitorName) + textBytes(m_description);
  return static_cast<DWORD>(size);
}

BYTE* CPortList::CopyPortToBuffer(const tagPort* port, DWORD level, BYTE* entry, BYTE* end) {
  CS_TraceEntry trace(L"CPortList::CopyPortToBuffer()");
  Operation operation(L"Stack Trace: CPortList::CopyPortToBuffer()");
  operation.run([&] {
    if (level == 1) {
      PORT_INFO_1W info = {};
      info.pName = asText(end = placeBelow(end, port->portName));
      placeEntry(entry, info);
    } else if (level == 2) {
      PORT_INFO_2W info = {};
      info.pMonitorName = asText(end = placeBelow(end, m_monitorName));
      info.pDescription = asText(end = placeBelow(end, m_description));
      info.pPortName = asText(end = placeBelow(end, port->portName));
      placeEntry(entry, info);
    } else {
      operation.note(corvane::kLevelFailure, L"Invalid level found: %d.", level);
    }
  });
  return end;
}

DWORD CPortList::neededBytesLocked(DWORD level) {
  const std::uint64_t count = m_ports.count();
  const std::uint64_t portSize = GetPortSize(level);
  std::uint64_t exact = 0;
  if (portSize != 0) {
    const std::uint64_t withoutName = portSize - kReservedName * sizeof(wchar_t);
    for (const auto& [name, port] : m_ports) {
      if (port == nullptr) break;
      exact += withoutName + textBytes(port->portName);
    }
  }
  return static_cast<DWORD>(
      std::min<std::uint64_t>(std::max(count * portSize, exact), std::numeric_limits<DWORD>::max()));
}

DWORD CPortList::copyAllLocked(DWORD level, BYTE* buffer, DWORD size, DWORD* returned) {
  DWORD error = ERROR_SUCCESS;
  *returned = 0;
  BYTE* entry = buffer;
  BYTE* end = buffer + size;
  for (const auto& [name, port] : m_ports) {
    if (port == nullptr) break;
    end = CopyPortToBuffer(port, level, entry, end);
    entry += entrySize(level);
    if (entrySize(level) == 0) error = ERROR_INVALID_LEVEL;
    ++*returned;
  }
  return error;
}
