#pragma once

#include "corvane/components/component_server.h"
#include "session/client_print_job.h"

// The stream of one job to the session's print client; its requests are in protocol/print_job.h. Made per job on the
// job's bridge and kept by the port beside the job. The calls of one job come one after another; no exception leaves
// them. A null job does nothing and counts as failed, because the print server of a finished job stays on its port.
class PrintServer : public CS_Component {
 public:
  static constexpr int kMaxChunk = 32768;             // bytes of the final data in one request
  static constexpr unsigned kEndJobTimeout = 600000;  // milliseconds to wait for the client to finish the job

  PrintServer() = default;
  ~PrintServer() override;

  // Announces the job with its names, settings and copies. Not answered, and silent on failure: the next write shows
  // that the connection is gone.
  void StartJob(ClientPrintJob* job);

  // Carries data of the job: 1 on success, 0 on failure.
  //  - In a direct delivery mode the data leave at once as one request, in the size in which they came, uncopied.
  //  - Otherwise data are appended to the job's PostScript file; the spooler's own call is as good as done when the
  //    file has taken every byte.
  //  - Otherwise a call with null and 0 sends the final data, from the first byte on, in pieces of at most kMaxChunk.
  int WriteJob(ClientPrintJob* job, const unsigned char* data, int length);

  // Ends the job and returns the client's result, positive when the client has taken all of it; 0 on failure.
  int EndJob(ClientPrintJob* job);
};

// Registered as "Quillfern::NTR::PrintServer"; the component server owns it from then on.
using PrintServerClass = corvane::ComponentClass<PrintServer>;
