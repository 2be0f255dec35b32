#pragma once

#include <filesystem>
#include <span>
#include <string>

namespace printclient {

// The certificates of the printers that this person prints to under TLS (ipps), which as a rule nobody has signed: the
// first one that a printer shows is believed and kept, in a file for each printer, and from then on no other. Any
// thread, and any number of processes.
class KnownPrinters {
 public:
  explicit KnownPrinters(std::filesystem::path folder) : m_folder(std::move(folder)) {}
  // Of the person who runs this program, beside what is known of servers. Throws std::runtime_error when there is no
  // folder for it.
  static KnownPrinters ofThisPerson();

  // Why that printer is not to be believed, with what to do; empty when it is. The certificate is as it is sent (DER).
  std::string refusal(const std::string& host, int port, std::span<const unsigned char> certificate) const;

 private:
  const std::filesystem::path m_folder;
};

}  // namespace printclient
