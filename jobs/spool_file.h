#pragma once

#include "session/client_print_job.h"

// Operations on the file in which a job's data were collected. None throws: what goes wrong is recorded.

// Whether the job's data are PostScript: true unless the file holds at least five bytes and these are not "%!PS-".
// Nothing in front of the five bytes is skipped. A file that cannot be opened counts as PostScript, because only data
// known to be something else may leave the way that PostScript takes.
bool IsPostScriptData(const ClientPrintJob& job);

// Makes the file's content the job's final data. After a failure these are absent, or zeros when nothing could be read.
void ReadDataIntoFinalBuffer(ClientPrintJob& job);

// Removes the file of a job that will not be converted any more. Nothing is recorded: as a rule there is none.
void discardCollectedData(const ClientPrintJob& job) noexcept;
