#pragma once

#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// An application server as it is installed, with keys, its state, its records and its log in files, and print clients
// of the sessions from 5 on, each with one printer "Laser". Everything is below the folder for temporary files, and
// ends with the object. Linux only. Printing may be done on several threads at once, everything else on one.
class BenchScene {
 public:
  explicit BenchScene(int sessions, const std::vector<std::string>& serverOptions = {});
  BenchScene(const BenchScene&) = delete;
  BenchScene& operator=(const BenchScene&) = delete;

  static constexpr int kFirstSession = 5;

  // A registered print client; with a server, at that address and under TLS.
  tests::ChildProcess& addClient(int session, const std::string& remoteServer = "");
  // Where aps expects clients of other machines, of "--listen-clients 127.0.0.1:0".
  std::uint16_t remotePort();

  // Prints the piece so many times; throws std::runtime_error when the print client has not all of it.
  void print(int session, const std::string& piece, int times) const;
  // Prints a document in writes of that size.
  void printDocument(int session, const std::string& document, std::size_t write) const;
  // Removes the documents that the clients have.
  void removeDocuments() const;

  tests::Scene& scene() { return *m_scene; }
  const tests::Keys& keys() const { return m_keys; }

 private:
  void printWith(int session, const std::function<void(tests::MonitorPeer&)>& write) const;

  const tests::Keys m_keys;
  std::unique_ptr<tests::Scene> m_scene;
  std::vector<std::unique_ptr<tests::ChildProcess>> m_clients;
};

// A raw tool, relay and sink, as processes of their own; see bench/raw_hops.cpp.
class RawHops {
 public:
  // The sink's files are in the folder.
  explicit RawHops(const std::string& folder, const std::string& program = "raw_hops");

  std::uint16_t port() const { return m_port; }
  const tests::ChildProcess& relay() const { return *m_relay; }
  void removeFiles() const;

 private:
  std::string m_folder;
  std::unique_ptr<tests::ChildProcess> m_sink, m_relay;
  std::uint16_t m_port = 0;
};
