#include "client/notices/desktop_notices.h"

#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <fmt/format.h>
#include <string>

namespace printclient {
namespace {

constexpr const char* kLibrary = "libsystemd.so.0";
constexpr int kShownMilliseconds = 15000;
constexpr unsigned char kNormal = 1, kCritical = 2;

// The few operations of libsystemd that are needed, as its manual declares them. It is loaded when the first notice is
// shown, so that a machine without a desktop needs nothing of it.
struct BusError {
  const char* name = nullptr;
  const char* message = nullptr;
  int needsFree = 0;
};
class Library {
 public:
  Library() : m_handle(dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL)) {
    if (m_handle == nullptr) return;
    load(openUser, "sd_bus_open_user");
    load(setTimeout, "sd_bus_set_method_call_timeout");
    load(call, "sd_bus_call_method");
    load(unref, "sd_bus_flush_close_unref");
    load(unrefMessage, "sd_bus_message_unref");
    load(freeError, "sd_bus_error_free");
  }
  ~Library() {
    if (m_handle != nullptr) dlclose(m_handle);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool isThere() const { return m_handle != nullptr && m_isWhole; }

  int (*openUser)(void** bus) = nullptr;
  int (*setTimeout)(void* bus, std::uint64_t microseconds) = nullptr;
  int (*call)(void* bus, const char* destination, const char* path, const char* interface, const char* member,
              BusError* error, void** reply, const char* types, ...) = nullptr;
  void* (*unref)(void* bus) = nullptr;
  void* (*unrefMessage)(void* message) = nullptr;
  void (*freeError)(BusError* error) = nullptr;

 private:
  template <class Function>
  void load(Function& function, const char* name) {
    void* const symbol = dlsym(m_handle, name);
    static_assert(sizeof(function) == sizeof(symbol));
    std::memcpy(&function, &symbol, sizeof(symbol));
    m_isWhole = m_isWhole && symbol != nullptr;
  }

  void* m_handle;
  bool m_isWhole = true;
};

// The text of a notice may be markup for some desktops.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

class BusDesktop : public Desktop {
 public:
  ~BusDesktop() override { close(); }

  std::string show(const DesktopNotice& notice) override {
    if (!m_library.isThere()) return fmt::format("{} is not installed", kLibrary);
    if (m_bus == nullptr) {
      const int opened = m_library.openUser(&m_bus);
      if (opened < 0) {
        m_bus = nullptr;
        return fmt::format("there is no message bus of a desktop: {}", std::strerror(-opened));
      }
      m_library.setTimeout(m_bus, static_cast<std::uint64_t>(kDesktopPatience.count()) * 1000);
    }
    const std::string why = notify(notice);
    if (!why.empty()) close();  // the next notice begins anew
    return why;
  }

 private:
  std::string notify(const DesktopNotice& notice) {
    BusError error;
    void* reply = nullptr;
    const int sent = m_library.call(m_bus, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                    "org.freedesktop.Notifications", "Notify", &error, &reply, "susssasa{sv}i",
                                    "printclient", 0U, notice.isUrgent ? "printer-error" : "printer",
                                    notice.title.c_str(), escaped(notice.text).c_str(), 0, 1, "urgency", "y",
                                    static_cast<int>(notice.isUrgent ? kCritical : kNormal), kShownMilliseconds);
    std::string why;
    if (sent < 0) {
      why = fmt::format("the desktop takes no notices: {}",
                        error.message != nullptr ? error.message : std::strerror(-sent));
    }
    m_library.freeError(&error);
    if (reply != nullptr) m_library.unrefMessage(reply);
    return why;
  }

  void close() {
    if (m_bus != nullptr) m_library.unref(m_bus);
    m_bus = nullptr;
  }

  const Library m_library;
  void* m_bus = nullptr;
};

}  // namespace

std::unique_ptr<Desktop> openDesktop() {
  return std::make_unique<BusDesktop>();
}

}  // namespace printclient
