#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace printclient {

// What a desktop shows. Texts are UTF-8 and plain: nothing in them is markup.
struct DesktopNotice {
  std::string title;
  std::string text;
  bool isUrgent = false;  // something failed, as opposed to something that waits
};

// The person's desktop, as far as it shows notices. Used by one thread.
class Desktop {
 public:
  virtual ~Desktop() = default;
  // Empty when the desktop has taken it, and otherwise why not. Waits for kDesktopPatience at most.
  virtual std::string show(const DesktopNotice& notice) = 0;
};
inline constexpr std::chrono::milliseconds kDesktopPatience{2000};

// Per platform: the notification service on the session's message bus, through libsystemd where that is installed; on
// Windows a balloon of an icon in the notification area, which is there from the first notice to the object's end.
// Nothing is asked for before the first notice.
std::unique_ptr<Desktop> openDesktop();

}  // namespace printclient
