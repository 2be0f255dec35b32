#pragma once

#include "tests/sweeps/sweep.h"

#include <winspool.h>

#include <string>

struct tagPort;

// A document on the port "CPP7" from its start to its end, in two writes. Whatever fails: it is reported as printed
// only when the print client has all of it, and a document that could not be started leaves an idle port.
class JobScenario : public Scenario {
 public:
  struct Kind {
    const wchar_t* printer;
    int printerValue;       // as the server describes the client printer
    int deliveryMode;       // set after the start when it is not 0
    const char* data;       // sent in two halves
    const char* delivered;  // what the client has to get
    bool goesToNotepad;     // then nothing is sent, and the document does not count as printed
  };

  // What the stand-in converter makes of everything.
  static constexpr char kConvertedData[] = "%PDF-1.4\nstand-in\n%%EOF\n";

  JobScenario(World& world, const Kind& kind);

  void prepare() override;
  void run() override;
  void check() override;
  void checkWhole() override;
  void tidy() override;

 private:
  void answer();
  bool clientHasAll() const;
  bool clientWasAsked(const char* request) const;

  World& m_world;
  Kind m_kind;
  std::string m_first;
  std::string m_second;
  HANDLE m_port = nullptr;
  BOOL m_started = FALSE;
  BOOL m_ended = FALSE;
  int m_files = 0;
};
