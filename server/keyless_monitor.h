#pragma once

namespace aps {

// Whether the print monitor is installed on this machine and has no key. Installing makes one; a monitor that was
// installed before it did, or that is to have none, goes on without.
bool hasKeylessMonitor();

}  // namespace aps
