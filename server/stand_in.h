#pragma once

#include "corvane/components/class.h"
#include "corvane/components/connection.h"
#include "server/session_table.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace aps {

// Why a job is not held, in words for a person: the cause, and what to do about it. Neither ends with a stop.
class HoldRefusal : public std::runtime_error {
 public:
  HoldRefusal(const std::string& cause, std::string remedy) : std::runtime_error(cause), m_remedy(std::move(remedy)) {}
  const std::string& remedy() const { return m_remedy; }

 private:
  std::string m_remedy;
};

// Takes jobs in the place of print clients that are away. Any thread; no call waits for a peer.
class StandIn {
 public:
  virtual ~StandIn() = default;

  // Whether it is to take a job for that printer, and no client.
  virtual bool wants(const SessionTable::Found& found) const = 0;

  // Where the bridge of a job is to lead that it takes. When the object goes before expect(), nothing of the job stays.
  class Place {
   public:
    Place() = default;
    virtual ~Place() = default;
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    // The job comes over the bridge that has that identifier there. Once, and before anything passes.
    virtual void expect(std::uint32_t bridge) = 0;

    CS_RCPtr<CS_Connection> connection;
    CS_ClassVersionMap versions;  // of the classes there
  };
  // The job has that number in the records. Throws HoldRefusal.
  virtual std::unique_ptr<Place> prepare(int number, const SessionTable::Found& found, const std::wstring& printer,
                                         int process) = 0;
  // The job's bridge has ended, and who brought it has its answer, or not. True when it is held.
  virtual bool ended(int number, std::uint32_t bridge, bool isAnswered) = 0;
};

}  // namespace aps
