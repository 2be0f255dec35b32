#pragma once

#include "session/client_print_job.h"

#include <cstddef>
#include <cstdio>
#include <memory>

namespace mg {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// An open file of the runtime library; closed at the end of its owner's scope.
using File = std::unique_ptr<std::FILE, FileCloser>;

// Bytes of an open file, with the position left at its start; below 0 when it cannot be told or does not fit a long.
long measure(std::FILE* file);

enum class FinalDataRead {
  kTaken,        // the file's bytes are the job's final data
  kEmpty,        // the file has no bytes, or more than a length of 32 bits can tell; the job has no final data now
  kNothingRead,  // not one byte could be read; the final data are zeros
};

// Makes the whole content of an open file the job's final data, in place of what the job held there before. The length
// is set as soon as it is known. A read that ends early but not at once is taken as it is; the rest stays zero. Throws
// std::bad_alloc, which leaves the job without final data.
FinalDataRead readFinalData(std::FILE* file, ClientPrintJob& job);

// Why data for a printer that wants PDF were not recognised as PostScript and go out as they came, with what to do
// about it: one line to stand behind "was delivered", never null, static storage. Only what stands at the very begin
// decides; the data may be of any kind and size, also none.
const wchar_t* whyUnconverted(const unsigned char* data, std::size_t size) noexcept;

}  // namespace mg

// Operations on the file in which a job's data were collected. None throws: what goes wrong is recorded.

// Whether the job's data are PostScript: true unless the file holds at least five bytes and these are not "%!PS-".
// Nothing in front of the five bytes is skipped. A file that cannot be opened counts as PostScript, because only data
// known to be something else may leave the way that PostScript takes.
bool IsPostScriptData(const ClientPrintJob& job);

// Makes the file's content the job's final data. After a failure these are absent, or zeros when nothing could be read.
void ReadDataIntoFinalBuffer(ClientPrintJob& job);

// Removes the file of a job that will not be converted any more. Nothing is recorded: usually there is no such file.
void discardCollectedData(const ClientPrintJob& job) noexcept;
