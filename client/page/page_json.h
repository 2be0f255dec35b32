#pragma once

#include "client/job_board.h"

#include <string>

namespace printclient {

// What is new on the board, as the page's script reads it (page.js): one line of JSON in ASCII. It has "count", "jobs",
// and of "order", "printers" and "servers" those that have changed.
std::string pageJson(const JobBoard::News& news);

}  // namespace printclient
