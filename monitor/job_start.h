#pragma once

#include "corvane/components/connection.h"
#include "session/print_server.h"

#include <windows.h>

class Operation;

namespace mg {

// Announces a job over its own connection: asks for the client printer, settles how the job travels, attaches it to the
// printer's session, and starts its stream. Returns the stream, which keeps the connection alive. Throws CS_Exception,
// with the reason recorded on the operation, at the first step that fails.
CS_RCPtr<PrintServer> startJob(Operation& operation, CS_Connection& connection, ClientPrintJob& job,
                               const wchar_t* printerName, DWORD jobId);

}  // namespace mg
