#include "ports/port_list.h"

#include <atomic>

namespace {

std::atomic<CPortList*> theList{nullptr};

}  // namespace

CPortList* CPortList::instance() noexcept {
  return theList.load();
}

void CPortList::setInstance(CPortList* list) noexcept {
  theList.store(list);
}
