// The handshake of Link: each side sends one frame with named values, so that later versions can add to it.

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"

namespace corvane {
namespace {

constexpr wchar_t kProtocolName[] = L"corvane";

void write(ValueWriter& writer, const HelloValues& values) {
  writer.writeText(kProtocolName);
  writer.writeInt(static_cast<int>(values.size()));
  for (const auto& [name, value] : values) {
    writer.writeText(name.c_str());
    writer.writeText(value.c_str());
  }
}

FrameHeader helloHeader(FrameKind kind) {
  FrameHeader header;
  header.kind = kind;
  header.number = kProtocolVersion;
  return header;
}

}  // namespace

Frame Link::awaitFrame(Deadline deadline) {
  for (;;) {
    if (auto frame = m_reader.next()) return *frame;
    switch (fill(deadline)) {
      case FrameReader::Fill::kData:
        break;
      case FrameReader::Fill::kTimedOut:
        throw CS_Exception(kConnectFailed, L"the other side did not finish the handshake in time");
      case FrameReader::Fill::kClosed:
        throw CS_Exception(kConnectFailed, L"the other side closed the connection during the handshake");
    }
  }
}

HelloValues Link::readHello(const Frame& frame, FrameKind kind) {
  if (frame.header.kind == FrameKind::kFailure) {
    const bool wantsKey = frame.header.correlation == static_cast<std::uint32_t>(kKeyNeeded);
    throw CS_Exception(wantsKey ? kKeyNeeded : kConnectFailed, L"%s", readReason(frame.payload()).c_str());
  }
  if (frame.header.kind != kind)
    throw CS_Exception(kProtocolViolation, L"the connection does not begin with a greeting");
  ValueReader reader(frame.payload());
  if (reader.readText() != kProtocolName) {
    throw CS_Exception(kProtocolViolation, L"the greeting is for another protocol");
  }
  const int count = reader.readInt();
  if (count < 0 || static_cast<std::size_t>(count) > kMaxHelloValues) {
    throw CS_Exception(kLimitExceeded, L"a greeting with %d values", count);
  }
  HelloValues values;
  for (int i = 0; i < count; ++i) {
    // They are kept as long as the connection; none that has a meaning is longer.
    const std::wstring name = reader.readText().substr(0, kMaxHelloCharacters);
    values[name] = reader.readText().substr(0, kMaxHelloCharacters);
  }
  return values;
}

HelloValues Link::sayHello(const HelloValues& values, Deadline deadline) {
  ValueWriter writer;
  write(writer, values);
  send(helloHeader(FrameKind::kHello), writer);
  const Frame answer = awaitFrame(deadline);
  HelloValues theirs = readHello(answer, FrameKind::kWelcome);
  if (answer.header.number != kProtocolVersion) {
    throw CS_Exception(kConnectFailed, L"the other side speaks version %d of the protocol, this one version %d",
                       static_cast<int>(answer.header.number), static_cast<int>(kProtocolVersion));
  }
  return theirs;
}

HelloValues Link::awaitHello(Deadline deadline) {
  const Frame hello = awaitFrame(deadline);
  HelloValues theirs = readHello(hello, FrameKind::kHello);
  if (hello.header.number != kProtocolVersion) {
    const CS_Exception mismatch(kConnectFailed,
                                L"this side speaks version %d of the protocol, the other one version %d",
                                static_cast<int>(kProtocolVersion), static_cast<int>(hello.header.number));
    refuseHello(0, mismatch.detail());
    throw mismatch;
  }
  return theirs;
}

void Link::welcome(const HelloValues& values) {
  ValueWriter writer;
  write(writer, values);
  send(helloHeader(FrameKind::kWelcome), writer);
}

void Link::refuseHello(int number, const wchar_t* reason) {
  FrameHeader header = helloHeader(FrameKind::kFailure);
  header.correlation = static_cast<std::uint32_t>(number);
  sendText(header, reason);
}

void Link::announceProof(const std::wstring& proof) {
  ValueWriter writer;
  writer.writeText(proof.c_str());
  announce(helloHeader(FrameKind::kProof), writer);
}

std::wstring Link::awaitProof(Deadline deadline) {
  const Frame frame = awaitFrame(deadline);
  if (frame.header.kind != FrameKind::kProof) {
    throw CS_Exception(kProtocolViolation, L"a request comes before the proof");
  }
  return ValueReader(frame.payload()).readText();
}

}  // namespace corvane
