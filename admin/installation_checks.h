#pragma once

#include "admin/places.h"

#include <string>

namespace admin {

// Examinations of what is installed, for the doctor: each gives what it found in words and throws a Failure.

std::string checkModuleFile(const Places& places);
// Loads it with what it depends on, and initialises it as a spooler does.
std::string checkModuleLoads();
std::string checkRegistration();
// Every value that the module reads: its type, and whether it makes sense.
std::string checkRegistry(const Places& places);
// The key that the monitor proves itself with, where there is one.
std::string checkKeyFile(const Places& places);
// Makes, writes, reads and deletes a file in the folder for temporary files, and looks at the space there.
std::string checkTemporaryFolder();
// Converts a page of PostScript.
std::string checkConverter(const Places& places);

}  // namespace admin
