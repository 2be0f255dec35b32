#include "protocol/print_job.h"

namespace protocol {

void write(corvane::ValueWriter& to, const JobDataToSend& piece) {
  write(to, static_cast<const JobDataOf<const wchar_t*>&>(piece));
  if (piece.length > 0) to.writeBytes(piece.data, piece.length);
}

const wchar_t* textOf(PrintResult result) {
  switch (result) {
    case PrintResult::kPrinted:
      return L"The print client has the whole document.";
    case PrintResult::kNoData:
      return L"The print client got no data.";
    case PrintResult::kDiskFailure:
      return L"The print client could not write the document.";
    case PrintResult::kIncompletePdf:
      return L"The print client got a PDF without its end.";
    case PrintResult::kNoJob:
      return L"The print client does not know the job.";
    case PrintResult::kBrokenData:
      return L"The print client got a piece of data that was not as long as it said.";
    case PrintResult::kNotTaken:
      break;  // like a number that is not known here: what there is to say the client has said
  }
  return L"The print client did not take the document.";
}

}  // namespace protocol
