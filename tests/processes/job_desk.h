#pragma once

#include "tests/processes/child_process.h"
#include "tests/processes/scene.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// Where the jobs of the sessions of one JobRound come out, and the way there. The sessions are 11 to 18.
class JobDesk {
 public:
  struct Document {
    std::string name;  // with an extension for what it is: ".prn" as printed, or ".pdf"
    std::string content;
  };

  virtual ~JobDesk() = default;

  // What aps is started with besides its port.
  virtual std::vector<std::string> serverOptions() const = 0;
  // The monitor's key; empty when aps wants none.
  virtual std::filesystem::path monitorKey() const = 0;
  // The command line of a session's print client with the printers "Raw" and "Pdf".
  virtual std::vector<std::string> clientCommand(const Scene& scene, int session) const = 0;
  // The call of HeldCalls in which a client brings a document to where it comes out.
  virtual std::string lastCall() const = 0;
  // What has come out for a session.
  virtual std::vector<Document> documents(const Scene& scene, int session) const = 0;
  // Returns when everything has come out that was there to come out.
  virtual void settle() = 0;
  // Null when nothing but a disk is behind the clients.
  virtual ChildProcess* printer(int session) const = 0;
  // Starts a killed printer again.
  virtual void restartPrinter(int session) = 0;
};

// Folders, through the loopback without keys.
std::unique_ptr<JobDesk> makeFolderDesk();
// A printer (ippeveprinter) for each session, over TLS with keys.
std::unique_ptr<JobDesk> makePaperDesk();

}  // namespace tests
