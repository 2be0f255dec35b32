#pragma once

#include "protocol/printer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// The stream of one job, from the port monitor (kPrintServerClass) to the session's print client (kPrintClientClass):
// one JobStart, any number of JobData, one JobEnd. A job that the application server has held for a client that was
// away comes from the server itself, with a HeldJob in front.
namespace protocol {

enum class PrintRequest { kStart = 1, kData = 2, kEnd = 3, kHeld = 4 };

// How a job's data travel. The value is the number on the wire; any other one may come.
enum class DeliveryMode : std::int32_t {
  kDirect = 1,
  kCollected = 2,  // collected in a file, converted, then sent
  kDirectAlternative = 3,
};

// The four settings of a job as they travel. Source and target are data formats: what the data are, and what they
// become on the way, where DataFormat::kRaw says that they stay as they are.
using JobSettings = std::array<std::int32_t, 4>;

enum JobSetting : std::size_t { kNamingSetting = 0, kSourceSetting = 1, kTargetSetting = 2, kDeliverySetting = 3 };

constexpr DeliveryMode deliveryMode(const JobSettings& settings) {
  return static_cast<DeliveryMode>(settings[kDeliverySetting]);
}
// Whether a job is collected and converted. A mode of an unknown number says no to this and to isDirect().
constexpr bool isCollected(const JobSettings& settings) {
  return deliveryMode(settings) == DeliveryMode::kCollected;
}
// Whether each piece of a job leaves as it comes.
constexpr bool isDirect(const JobSettings& settings) {
  const DeliveryMode mode = deliveryMode(settings);
  return mode == DeliveryMode::kDirect || mode == DeliveryMode::kDirectAlternative;
}

// Whether PostScript is to become PDF, as in every job that is collected.
constexpr bool isPdfOfPostScript(const JobSettings& settings) {
  return settings[kSourceSetting] == static_cast<std::int32_t>(DataFormat::kPostScript) &&
         settings[kTargetSetting] == static_cast<std::int32_t>(DataFormat::kPdf);
}

// Each message of a job is read with texts of its own (std::wstring) and sent with those of the caller (const wchar_t*,
// never copied), so that announcing a job and sending its data allocate nothing for names of usual length. An empty
// text travels as absent.

// Announces a job; not answered.
template <class Text>
struct JobStartOf {
  static constexpr PrintRequest kNumber = PrintRequest::kStart;

  Text jobName = {};
  Text printerName = {};  // the client's printer
  Text documentName = {};
  Text dataType = {};
  JobSettings settings = {};
  int copies = 0;

  static void layout(auto& self, auto& wire) {
    wire.ifAny(self.jobName);
    wire.ifAny(self.printerName);
    wire.ifAny(self.documentName);
    wire.ifAny(self.dataType);
    wire(self.settings, self.copies);
  }
};
using JobStart = JobStartOf<std::wstring>;
using JobStartToSend = JobStartOf<const wchar_t*>;

// A piece of a job's data; not answered. Behind these values follows the block of data, unless length is 0.
template <class Text>
struct JobDataOf {
  static constexpr PrintRequest kNumber = PrintRequest::kData;

  Text jobName = {};
  int length = 0;

  static void layout(auto& self, auto& wire) {
    wire.ifAny(self.jobName);
    wire(self.length);
  }
};
using JobData = JobDataOf<std::wstring>;

// The same with its block, which belongs to the caller and must stay until it is sent.
struct JobDataToSend : JobDataOf<const wchar_t*> {
  const unsigned char* data = nullptr;
};
void write(corvane::ValueWriter& to, const JobDataToSend& piece);

// The print client's answer to the end of a job. A positive number means that the job is complete where it was to go:
// on disk, in the printer's queue, through the person's program. The port monitor reports a job as printed only then.
// Any other number may come.
enum class PrintResult : std::int32_t {
  kPrinted = 1,
  kNoData = -1,         // a converted job without data: its conversion has failed
  kDiskFailure = -2,    // the file could not be created, written or completed
  kIncompletePdf = -3,  // data that begin as PDF and do not end as PDF
  kNoJob = -4,          // there is no job to end
  kBrokenData = -5,     // a piece of data was not as long as it said
  kNotTaken = -6,       // the job came whole, but the printer or program that it was for did not take it
};

// What an answer says, as a sentence; a general one for a number without its own. Never null, static storage.
const wchar_t* textOf(PrintResult result);

// Ends a job.
struct JobEnd {
  static constexpr PrintRequest kNumber = PrintRequest::kEnd;

  std::wstring jobName;

  static void layout(auto& self, auto& wire) { wire.ifAny(self.jobName); }

  struct Answer {
    PrintResult result = PrintResult::kNoJob;

    static void layout(auto& self, auto& wire) { wire(self.result); }
  };
};

// What a print client knows of a job that the application server has held for it. The value is the number on the wire.
enum class HeldJobState : std::int32_t {
  kNew = 1,      // nothing of it has been handed on: it may be sent
  kTaken = 2,    // it is where it was to go, and must not be sent again
  kUnclear = 3,  // the client was interrupted while it handed the document on, and nobody can tell what came of it
  kBusy = 4,     // it is being handed on right now
};

// Names a job that was held, before its start and whatever became of an earlier delivery, so that it is printed once. A
// print client of an older version refuses the request, and takes the job that follows all the same.
struct HeldJob {
  static constexpr PrintRequest kNumber = PrintRequest::kHeld;
  static constexpr std::size_t kIdDigits = 32;

  std::wstring id;  // kIdDigits hexadecimal digits that no other job has

  static void layout(auto& self, auto& wire) { wire(self.id); }

  struct Answer {
    HeldJobState state = HeldJobState::kNew;
    std::wstring device;  // where the client remembers what it has taken: it knows nothing of what another device took

    static void layout(auto& self, auto& wire) { wire(self.state, self.device); }
  };
};

}  // namespace protocol
