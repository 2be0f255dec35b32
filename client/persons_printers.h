#pragma once

#include "client/options.h"

#include <string>
#include <vector>

namespace printclient {

// The printers that this machine has for the person who runs the print client, each with its queue: on Linux those that
// CUPS lists, on Windows local printers and connections. Printers of this system's own ports are left out, because
// their jobs would come back. Used by one thread.
class PersonsPrinters {
 public:
  // Patterns of names, in which "*" stands for any text and "?" for one character; letters count with their case. With
  // none in only, every printer is wanted.
  struct Choice {
    std::vector<std::string> only;
    std::vector<std::string> except;
  };
  explicit PersonsPrinters(Choice choice) : m_choice(std::move(choice)) {}

  // The printers as they are now, by name. Throws std::runtime_error with the cause when the system does not tell.
  std::vector<PrinterOption> list();
  // Whether they are others than the last call of list() or hasChanged() found: added, removed, described otherwise, or
  // with another default. False when the system does not tell at the moment.
  bool hasChanged();

  // Gives options that name no printers those of this person, and leaves others alone. Throws std::runtime_error, also
  // when there is none.
  static void addTo(Options& options);

 private:
  std::vector<PrinterOption> chosen() const;

  const Choice m_choice;
  std::vector<PrinterOption> m_last;
};

// The end of a printer's comment: its resolution, unless that is 0, and its paper, the usual one first. Of many papers
// the first few are named.
std::string paperWords(const std::vector<std::string>& papers, int resolution);

// What the system lists; per platform.
std::vector<PrinterOption> systemPrinters();

}  // namespace printclient
