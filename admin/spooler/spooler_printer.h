#pragma once

#include <functional>
#include <string>
#include <vector>

namespace admin {

// A printer of this machine: the properties that this program uses.
struct SpoolerPrinter {
  std::wstring name;
  std::wstring port;
  std::wstring driver;
  std::wstring processor;
  std::wstring comment;
  // Already deleted; the spooler keeps it until the last job has left its queue.
  bool isGoing = false;
  // Somebody has paused it, or has set it to work offline: jobs wait in its queue.
  bool isPaused = false;
  bool isOffline = false;
};

// Every function throws a SystemFailure that names the printer.

std::vector<SpoolerPrinter> localPrinters();
// The printers that use one of the ports.
std::vector<SpoolerPrinter> printersOn(const std::vector<std::wstring>& ports);
void addPrinter(const SpoolerPrinter& printer);
// Sets port, driver, processor and comment of an existing printer.
void changePrinter(const SpoolerPrinter& printer);
void deletePrinter(const std::wstring& name);

// The default printer of the user who runs this; empty when there is none.
std::wstring defaultPrinter();
void setDefaultPrinter(const std::wstring& name);

// A file that is printed as it is, through the spooler of this machine.
struct RawDocument {
  std::wstring printer;
  std::wstring file;
  std::wstring title;
  short copies = 1;
};

// Called with the number of bytes that the spooler has, and their total.
using TellProgress = std::function<void(unsigned long long done, unsigned long long all)>;

// A document that the spooler has.
struct SpooledDocument {
  unsigned long job = 0;
  // Not 0 when the spooler reported an error at the end of the document: it has the document all the same, and the
  // notice of the job has the details.
  unsigned long endError = 0;
};

// Hands the file to the spooler. Throws a Failure; an incomplete document is deleted from the queue.
SpooledDocument printDocument(const RawDocument& document, const TellProgress& tell);

}  // namespace admin
