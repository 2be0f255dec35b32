#pragma once

#include "session/client_print_job.h"

class ClientPrinter;

// Decides from the client printer's description how the job travels, and names the job's temporary files when it is to
// be converted:
//
//   printer value   second, third and fourth setting   temporary files
//   1               1, 1, 1                            none
//   2               2, 1, 1                            none
//   3               2, 3, 2                            .ps, .pdf and .log
//
// The first setting is 2 for the driver "Universal Remote Printer"; for every other driver it is 1 and the job takes
// the client printer's name. Any other printer value, or a null job, is recorded and leaves the job as it was. Does not
// throw.
void ConfigurePrintJobSettings(ClientPrintJob* job, const ClientPrinter& printer);
