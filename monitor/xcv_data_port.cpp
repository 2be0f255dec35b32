#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "jobs/init_spooler.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "ports/port_list.h"
#include "session/held_port.h"
#include "util/utl_string.h"

DWORD WINAPI MGXcvDataPort(HANDLE, LPCWSTR pszDataName, PBYTE pInputData, DWORD, PBYTE, DWORD, PDWORD) {
  const auto* input = reinterpret_cast<const wchar_t*>(pInputData);
  CS_TraceEntry trace(L"MGXcvDataPort (pInputData = %s)", input);
  Operation operation(L"Stack Trace: MgPrintMon - MGXcvDataPort()");
  DWORD result = ERROR_INVALID_DATA;
  operation.run([&] {
    if (pszDataName == nullptr || input == nullptr) {
      result = ERROR_INVALID_PARAMETER;
      throw CS_Exception(corvane::kBadArgument, nullptr);
    }
    const UTL_String command(pszDataName);
    // What the port list makes of it is in its own records; the caller learns only that the command was understood.
    if (command == UTL_String(L"AddPort")) {
      mg::portList().AddNewPort(input);
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"DeletePort")) {
      mg::portList().DeletePort(input, mg::endJobOfDeletedPort);
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"InitSpooler")) {
      InitSpooler();
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"InitPortMonitor")) result = ERROR_SUCCESS;
  });
  return result;
}
