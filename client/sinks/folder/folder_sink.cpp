#include "client/sinks/folder/folder_sink.h"

namespace printclient {

TakenJob FolderSink::take(const ArrivedJob& job) {
  const std::string extension = job.content.extension();
  return {"to " + job.file.keepAs(fileNameFor(job.ticket.documentName, job.ticket.jobName, extension), extension)};
}

}  // namespace printclient
