#pragma once

#include "session/client_print_job.h"

// Prints the job's final data as plain text: filters them in place, writes them to a new temporary text file and has
// notepad started in the user's session to print that file to the printer. The file stays, because notepad reads it
// after this call has returned. Failures are recorded; does not throw.
void PrintRawDataViaNotepad(ClientPrintJob& job, const wchar_t* printerName);
