#pragma once

#include "admin/base/places.h"
#include "admin/support/scrubber.h"

#include <string>
#include <vector>

namespace admin {

// One of the files that a developer gets.
struct SupportFile {
  std::string name;  // in the archive
  std::string what;  // a sentence for people
  std::string content;
};

// What this machine tells of an installation, as files from which names of users, titles of documents and keys are
// taken out. What cannot be had says so in its file; nothing is thrown but for missing memory. Queries the application
// server at that port; 0: that of the registry.
std::vector<SupportFile> collectSupportFiles(const Places& places, int serverPort, Scrubber& scrubber);

}  // namespace admin
