#pragma once

#include "corvane/components/bridge_router.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/connection_pair.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// A pair of components for tests of connections and bridges, and the fixture that registers them.
namespace echo {

using namespace corvane;

// What the components of the tests have seen; one per test.
struct Seen {
  std::mutex lock;
  std::condition_variable changed;
  std::size_t bytes = 0;
  std::size_t largestPiece = 0;
  unsigned sum = 0;
  int released = 0;
  bool mayAnswer = true;
  int asked = 0;

  void waitFor(const std::function<bool()>& condition) {
    std::unique_lock guard(lock);
    ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(20), condition));
  }
};

inline Seen* seen = nullptr;

// The dialing side's half of the pair.
class Caller : public CS_Component {
 public:
  bool release() override {
    const std::lock_guard guard(seen->lock);
    ++seen->released;
    seen->changed.notify_all();
    return CS_Component::release();
  }
};

// The serving side's half: 1 doubles an integer, 2 takes a block without a reply, 3 says how much came, 4 throws,
// 5 answers with a long text, 6 answers only when it may.
class Server : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    switch (request.number()) {
      case 1:
        request.reply().writeInt(2 * request.readInt());
        request.sendReply();
        return true;
      case 2:
        for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece()) {
          const std::lock_guard guard(seen->lock);
          seen->bytes += piece.size();
          seen->largestPiece = std::max(seen->largestPiece, piece.size());
          for (const unsigned char byte : piece)
            seen->sum += byte;
        }
        return true;
      case 3:
        request.reply().writeInt(static_cast<int>(seen->bytes));
        request.sendReply();
        return true;
      case 4:
        throw CS_Exception(kMissingObject, L"the tray is empty");
      case 5:
        for (int i = 0; i < 10; ++i)
          request.reply().writeText(std::wstring(20000, static_cast<wchar_t>(L'a' + i)).c_str());
        request.sendReply();
        return true;
      case 6: {
        std::unique_lock guard(seen->lock);
        ++seen->asked;
        seen->changed.notify_all();
        seen->changed.wait(guard, [] { return seen->mayAnswer; });
        request.reply().writeInt(6);
        request.sendReply();
        return true;
      }
      default:
        return false;
    }
  }
  bool release() override {
    const std::lock_guard guard(seen->lock);
    seen->released += 100;
    seen->changed.notify_all();
    return CS_Component::release();
  }
};

class EchoTest : public ::testing::Test {
 protected:
  EchoTest() {
    seen = &m_seen;
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Caller", new ComponentClass<Caller>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Server", new ComponentClass<Server>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Secret", new ComponentClass<Server>(CS_Version(4, 0, 1, 0)));
    server->offerClass(L"Server");
    server->offerClass(CS_Bridge::m_className);
    server->offerClass(CS_BridgeRouter::getClassName());
  }

  static int twice(const CS_RCPtr<CS_Component>& component, int value, unsigned milliseconds = 20000) {
    CS_OutRequest request(component, 1);
    request.writeInt(value);
    CS_InRequest reply(request);
    request.execute(reply, milliseconds);
    return reply.readInt();
  }

  static void sendBlock(const CS_RCPtr<CS_Component>& component, const std::vector<unsigned char>& block) {
    CS_OutRequest request(component, 2);
    request.write(block.data(), static_cast<int>(block.size()));
    request.execute();
  }

  static int askInt(const CS_RCPtr<CS_Component>& component, int number, unsigned milliseconds = 20000) {
    CS_OutRequest request(component, number);
    CS_InRequest reply(request);
    request.execute(reply, milliseconds);
    return reply.readInt();
  }

  template <class Action>
  static std::pair<int, std::wstring> failureOf(Action&& action) {
    try {
      action();
    } catch (const CS_Exception& exception) {
      return {exception.number(), exception.detail()};
    }
    return {0, L"nothing was thrown"};
  }

  Seen m_seen;
};

}  // namespace echo
