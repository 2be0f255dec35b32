#pragma once

#include "client/sinks/printer/printer_target.h"
#include "client/sinks/sink.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace printclient {

// How long a printer may take. Whoever waits for the answer to a job's end waits 10 minutes, so that all of it together
// has to stay below that.
struct PrinterPatience {
  std::chrono::milliseconds connect{10000};   // until it answers at all
  std::chrono::milliseconds silence{60000};   // without a byte that it takes or sends, or with a trouble that lasts
  std::chrono::milliseconds watch{5000};      // an untroubled job is watched that long for how it ends
  std::chrono::milliseconds all{540000};      // for a job as a whole
  std::chrono::milliseconds takeBack{10000};  // until a job ends that it was told to end
};

// Prints each job on one of the person's printers. A job is taken when the printer's queue has it whole: it has printed
// it, has begun to print it without trouble, or keeps it behind others. A job that the printer does not want, gives up,
// or cannot print because something is wrong with it that lasts is taken back before it is refused, so that it does not
// come out later beside the one that the person prints again.
//
// Where there is IPP (CUPS, and printers by their addresses): the copies are a number beside the data, and the printer
// makes them. A queue of Windows gets the data raw, but for PDF, which Ghostscript prints where it is installed
// (printer_sink_windows.cpp).
class PrinterSink : public Sink {
 public:
  explicit PrinterSink(PrinterTarget target, PrinterPatience patience = PrinterPatience());

  TakenJob take(const ArrivedJob& job) override;
  void stop() noexcept override {
    m_stopping = true;
    if (m_pdf) m_pdf->stop();
  }

 private:
  const PrinterTarget m_target;
  const PrinterPatience m_patience;
  const std::unique_ptr<Sink> m_pdf;  // prints PDF instead, where the queue does not take it and something else can
  std::atomic<bool> m_stopping{false};
};

}  // namespace printclient
