#pragma once

#include <string>

namespace programs {

// Where the application server of this machine keeps what it has, unless its options say otherwise: keys, sessions,
// records of jobs. On Windows "Marrowgate" in the folder for the data of all programs, where mgprintmon makes it;
// elsewhere /var/lib/aps, as the package has it. UTF-8, without a separator at the end.
std::string dataFolder();
// Its folder of keys.
std::string keyFolder();
// Its log when it is a service of Windows.
std::string serviceLog();

}  // namespace programs
