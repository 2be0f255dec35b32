#include "tests/support/monitor/send_seam.h"

#include "tests/support/import_seam.h"

#include <winsock2.h>

#include <utility>

MG_IMPORT_SEAM(L"ws2_32.dll", WSASend, SOCKET_ERROR)

void send_seam::watch(std::function<void()> action) {
  WSASendSeam.watch = [action = std::move(action)](SOCKET, LPWSABUF, DWORD, LPDWORD, DWORD, LPWSAOVERLAPPED,
                                                   LPWSAOVERLAPPED_COMPLETION_ROUTINE) { action(); };
}

void send_seam::reset(int nth) {
  WSASendSeam.fail(nth, SOCKET_ERROR, WSAECONNRESET);
}
