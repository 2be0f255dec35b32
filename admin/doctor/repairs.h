#pragma once

#include "admin/base/places.h"
#include "admin/doctor/diagnosis.h"

#include <istream>
#include <optional>
#include <ostream>
#include <string>

namespace admin {

// What the doctor can do about the checks of checks.h that have failed, each as installing does it. Looking for a
// repair changes nothing; nothing is returned when there is none, or when the installation's own files are not to be
// had any more. All throw Failures.

// Asks before each repair, in one line; only an answer that begins with "y" is a yes. The streams outlive it.
AskRepair askAt(std::istream& in, std::ostream& out);

// Of what a further installation restores: files, keys, values, services. From the folder that it was installed from.
std::optional<Repair> repairByInstalling(const Places& places);
std::optional<Repair> repairOfRegistration(const Places& places);
// A number of a wrong type or out of its bounds is removed, so that its default holds - the port becomes that of the
// service where there is one -, and what is missing is installed.
std::optional<Repair> repairOfRegistry(const Places& places);
// Of a monitor's key that is missing where installing makes it; never of one that is there.
std::optional<Repair> repairOfKeyFile(const Places& places);
std::optional<Repair> repairOfServices(const Places& places);
std::optional<Repair> repairOfSpooler(bool printsHere);
std::optional<Repair> repairOfTemporaryFolder();
std::optional<Repair> repairOfConverter(const Places& places);
// Takes the port and the printers of a session down.
Repair repairOfLeftSession(unsigned session);

}  // namespace admin
