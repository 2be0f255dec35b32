#pragma once

#include "session/client_print_job.h"

// Turns a job that was collected in its PostScript file into what is sent to the client, at the end of its document:
//  - PostScript is converted by the external converter, and the PDF becomes the job's final data;
//  - anything else becomes the final data as it is and, for a printer whose name begins with "Preview PDF", is printed
//    as plain text through notepad in the user's session.
// Only jobs whose second and third settings are 2 and 3 are touched. The temporary files are gone afterwards, whatever
// happened.
//
// The name is the local printer's and may be null. Returns 1 when the job went to notepad and nothing is to be sent,
// otherwise 0, also after a failure, which is recorded together with what the converter printed. Does not throw. Runs
// on the caller's thread, waits for the converter without limit, and ends the thread's impersonation of a client.
int ConvertJob(ClientPrintJob* job, const wchar_t* printerName);
