#pragma once

#include <filesystem>

namespace printclient {

// A folder for files that are nobody else's business, which is made if it is not there: that of the person's login
// (XDG_RUNTIME_DIR) or one below the system's temporary folder, and on Windows one of the person's local data. Throws
// std::runtime_error with the cause and what to do when there is none that is this user's alone.
std::filesystem::path privateFolder();

}  // namespace printclient
