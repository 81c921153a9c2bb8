// scan, monitor: print events as they arrive, until --timeout or a signal.
#include "Commands.h"
#include "EventPrinter.h"
#include "Session.h"

namespace oxactl {

ExitStatus runScan(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  EventPrinter events(session, printer);
  events.subscribeDevices();
  session.registerService();
  const Discovery discovery(session.service());
  session.loop().stopOnSignals();
  session.listen(options.timeout);
  events.rethrow();
  return ExitStatus::kSuccess;
}

ExitStatus runMonitor(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  EventPrinter events(session, printer);
  events.subscribeState();
  events.subscribeDevices();
  events.subscribeReceived();
  session.registerService();
  std::optional<Discovery> discovery;
  if (options.scan) {
    discovery.emplace(session.service());
  }
  session.loop().stopOnSignals();
  session.listen(options.timeout);
  events.rethrow();
  return ExitStatus::kSuccess;
}

}  // namespace oxactl
