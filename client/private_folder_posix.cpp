#include "client/private_folder.h"
#include "programs/text.h"

#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace printclient {
namespace {

// A folder itself, no link to one, of this user, into which nobody else may look.
bool isOwn(const std::filesystem::path& folder) {
  struct stat status;
  return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & 077) == 0;
}

}  // namespace

std::filesystem::path privateFolder() {
  const char* const login = std::getenv("XDG_RUNTIME_DIR");
  const bool hasLogin = login != nullptr && login[0] == '/' && isOwn(login);
  const std::filesystem::path folder =
      hasLogin ? std::filesystem::path(login) / "printclient"
               : std::filesystem::temp_directory_path() / ("printclient-" + std::to_string(geteuid()));
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::runtime_error(
        fmt::format("the folder {} for unfinished jobs cannot be made: {}; give another with "
                    "--output",
                    programs::fromPath(folder), std::generic_category().message(errno)));
  }
  if (!isOwn(folder)) {
    throw std::runtime_error(
        fmt::format("{} for unfinished jobs is not a folder of yours alone; remove it, or give another with --output",
                    programs::fromPath(folder)));
  }
  return folder;
}

}  // namespace printclient
