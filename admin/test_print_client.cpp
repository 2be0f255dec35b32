#include "admin/test_print_client.h"

#include "protocol/exchange.h"
#include "protocol/print_job.h"

namespace admin {
bool TestPrintClient::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::PrintRequest>(request.number())) {
    case protocol::PrintRequest::kStart:
      m_arrival->begin();
      return true;
    case protocol::PrintRequest::kData:
      if (protocol::read<protocol::JobData>(request).length == 0) return true;
      for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
        m_arrival->append(piece.data(), piece.size());
      return true;
    case protocol::PrintRequest::kEnd:
      protocol::answer(request, protocol::JobEnd::Answer{protocol::PrintResult::kPrinted});
      m_arrival->end();
      return true;
  }
  return CS_Component::processRequest(request);
}

}  // namespace admin
