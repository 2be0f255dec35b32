#include "admin/test_print_client.h"

#include "corvane/in_request.h"
#include "corvane/print_result.h"

namespace admin {
namespace {

// The requests of docs/protocol.md.
constexpr int kStartJob = 1;
constexpr int kWriteJob = 2;
constexpr int kEndJob = 3;

void skipOptionalText(CS_InRequest& request) {
  if (request.readBoolean()) request.readUTF();
}

}  // namespace

bool TestPrintClient::processRequest(CS_InRequest& request) {
  switch (request.number()) {
    case kStartJob:
      m_arrival->begin();
      return true;
    case kWriteJob:
      skipOptionalText(request);
      if (request.readInt() == 0) return true;
      for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
        m_arrival->append(piece.data(), piece.size());
      return true;
    case kEndJob:
      request.reply().writeInt(corvane::kPrinted);
      request.sendReply();
      m_arrival->end();
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

}  // namespace admin
