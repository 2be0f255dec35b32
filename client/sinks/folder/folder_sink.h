#pragma once

#include "client/sinks/sink.h"

namespace printclient {

// Keeps each job as a file in the folder that it was received in, complete on disk under a name made of the document's.
class FolderSink : public Sink {
 public:
  TakenJob take(const ArrivedJob& job) override;
  bool onlyRenames() const override { return true; }
};

}  // namespace printclient
