// Sends one job with the monitor's own session classes, in a delivery mode that no client printer can ask for. Prints
// the client's result; ends with 0 when it is positive.
#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "programs/text.h"
#include "session/make_component.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

struct Arguments {
  std::string printer;
  int mode = 1;
  int pattern = 0;
  int writeSize = 65536;
};

template <class Component>
CS_RCPtr<Component> makeComponent(CS_Component& owner, const wchar_t* local, const wchar_t* remote) {
  const auto factory = owner.getClassFactory(local, remote, true);
  CS_RCPtr<Component> component(factory ? dynamic_cast<Component*>(factory->newInstance(0)) : nullptr);
  if (!component) throw std::runtime_error("a component of the job cannot be made");
  return component;
}

// The bytes that port_host sends, too.
std::vector<unsigned char> patternOf(int size) {
  std::vector<unsigned char> data(static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<unsigned char>(i * 31 % 251);
  return data;
}

int run(const Arguments& arguments) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  const CS_Version version(4, 0, 1, 0);
  server->registerClass(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(version));
  server->registerClass(L"Quillfern::NTR::PrintServer", new PrintServerClass(version));
  PortMonitorServer::initialize();

  const CS_RCPtr<CS_Connection> connection = PortMonitorServer::connectToLocalhost();
  if (!connection) throw std::runtime_error("no connection");
  const auto bridge = makeComponent<CS_Component>(*connection, CS_Bridge::m_className, CS_BridgeRouter::getClassName());
  const auto monitor = makeComponent<PortMonitorServer>(*connection, L"Quillfern::NTR::PortMonitorServer",
                                                        L"Quillfern::NTR::PortMonitorClient");
  mg::startChannel(*monitor);
  const std::wstring printer(arguments.printer.begin(), arguments.printer.end());
  if (!monitor->AttachPrintJobToSession(printer.c_str(), bridge.get())) throw std::runtime_error("not attached");
  const auto stream =
      makeComponent<PrintServer>(*bridge, L"Quillfern::NTR::PrintServer", L"Quillfern::NTR::PrintClient");
  mg::startChannel(*stream);

  ClientPrintJob job;
  job.jobName = L"streamed";
  job.documentName = L"streamed";
  job.copies = 1;
  job.settings = {1, 1, 1, arguments.mode};
  stream->StartJob(&job);
  const std::vector<unsigned char> data = patternOf(arguments.pattern);
  for (int at = 0; at < arguments.pattern; at += arguments.writeSize) {
    const int count = std::min(arguments.writeSize, arguments.pattern - at);
    if (stream->WriteJob(&job, data.data() + at, count) == 0) throw std::runtime_error("WriteJob failed");
  }
  const int result = stream->EndJob(&job);
  std::printf("result %d\n", result);
  CS_Connection::destroy(connection, true);
  return result > 0 ? 0 : 1;
}

}  // namespace

int wmain(int count, wchar_t** words) {
  CLI::App app("Sends one job in any delivery mode.", "stream_host");
  Arguments arguments;
  app.add_option("--printer", arguments.printer)->required();
  app.add_option("--mode", arguments.mode);
  app.add_option("--pattern", arguments.pattern);
  app.add_option("--write-size", arguments.writeSize);
  std::vector<std::string> reversed;
  for (int i = count - 1; i > 0; --i)
    reversed.emplace_back(words[i], words[i] + std::wcslen(words[i]));
  try {
    app.parse(reversed);
    return run(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stream_host: %s\n", error.what());
    return 1;
  }
}
