#pragma once

#include "session/client_print_job.h"

// Removes printer escape sequences from the bytes, in place, and returns how many are left; 0 for null data. A sequence
// runs from an ESC (0x1B) to the next byte from 0x3D to 0x5A, both included; one that has no such byte ends with the
// data. No other control character is touched.
int StripEscapeChars(unsigned char* data, int length);

// Prints the job's final data as plain text: filters them in place, writes them to a new temporary text file and has
// notepad started in the user's session to print that file to the printer. The file stays, because notepad reads it
// after this call has returned. Failures are recorded; does not throw.
void PrintRawDataViaNotepad(ClientPrintJob& job, const wchar_t* printerName);
