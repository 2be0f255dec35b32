#include "server/descriptors.h"

#include <algorithm>
#include <sys/resource.h>

namespace aps {

std::size_t provideDescriptors(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  if (limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  return std::min<rlim_t>(limit.rlim_cur, wanted);
}

}  // namespace aps
