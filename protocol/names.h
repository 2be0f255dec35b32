#pragma once

#include "corvane/components/class.h"

// The classes of the print system's components. Each pair stands at the two ends of one conversation; the requests of
// the first are in print_job.h, of the second in port_monitor.h, of the third in registration.h, of the fourth in
// administration.h and of the last in invitation.h.
namespace protocol {

inline constexpr const wchar_t* kPrintServerClass = L"Quillfern::NTR::PrintServer";  // in the port monitor
inline constexpr const wchar_t* kPrintClientClass = L"Quillfern::NTR::PrintClient";  // in the print client

inline constexpr const wchar_t* kPortMonitorServerClass = L"Quillfern::NTR::PortMonitorServer";  // in the port monitor
inline constexpr const wchar_t* kPortMonitorClientClass = L"Quillfern::NTR::PortMonitorClient";  // in aps

inline constexpr const wchar_t* kSessionClientClass = L"Quillfern::NTR::SessionClient";  // in the print client
inline constexpr const wchar_t* kSessionHostClass = L"Quillfern::NTR::SessionHost";      // in aps

inline constexpr const wchar_t* kAdministrationClientClass = L"Quillfern::NTR::AdministrationClient";  // in mgprintmon
inline constexpr const wchar_t* kAdministrationServerClass = L"Quillfern::NTR::AdministrationServer";  // in aps

inline constexpr const wchar_t* kInvitationGuestClass = L"Quillfern::NTR::InvitationGuest";  // in the print client
inline constexpr const wchar_t* kInvitationHostClass = L"Quillfern::NTR::InvitationHost";    // in aps

// Of all these classes: the version of the whole project, from CMakeLists.txt.
inline constexpr CS_Version kVersion{MG_VERSION_NUMBERS};

}  // namespace protocol
