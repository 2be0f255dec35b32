#pragma once

#include <functional>
#include <string>
#include <vector>

namespace admin {

// A printer of this machine, as far as this program has to do with it.
struct SpoolerPrinter {
  std::wstring name;
  std::wstring port;
  std::wstring driver;
  std::wstring processor;
  std::wstring comment;
  // Deleted already, and kept by the spooler until the last job has left its queue.
  bool isGoing = false;
};

// Everything throws a SystemFailure that names the printer.

std::vector<SpoolerPrinter> localPrinters();
// Those that use one of the ports.
std::vector<SpoolerPrinter> printersOn(const std::vector<std::wstring>& ports);
void addPrinter(const SpoolerPrinter& printer);
// Gives a printer that is there the port, driver, processor and comment.
void changePrinter(const SpoolerPrinter& printer);
void deletePrinter(const std::wstring& name);

// The names of the drivers for 64-bit Windows.
std::vector<std::wstring> installedDrivers();
// The default printer of the user who runs this; empty when there is none.
std::wstring defaultPrinter();
void setDefaultPrinter(const std::wstring& name);

// A file to print as it is, through the spooler of this machine.
struct RawDocument {
  std::wstring printer;
  std::wstring file;
  std::wstring title;
  short copies = 1;
};

// Told how many bytes of how many the spooler has.
using TellProgress = std::function<void(unsigned long long done, unsigned long long all)>;

// A document that the spooler has.
struct SpooledDocument {
  unsigned long job = 0;
  // Not 0 when the spooler said at the document's end that something went wrong: it has the document all the same, and
  // the notice of the job says more.
  unsigned long endError = 0;
};

// Hands the file to the spooler. Throws a Failure; a document that broke off is taken back.
SpooledDocument printDocument(const RawDocument& document, const TellProgress& tell);

}  // namespace admin
