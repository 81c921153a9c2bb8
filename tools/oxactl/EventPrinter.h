#ifndef OXA_TOOLS_OXACTL_EVENT_PRINTER_H_
#define OXA_TOOLS_OXACTL_EVENT_PRINTER_H_

#include <oxa.h>

#include <exception>
#include <vector>

#include "Printer.h"
#include "Session.h"

namespace oxactl {

// Subscribes a session's service to events and prints each one as it arrives.
class EventPrinter {
 public:
  EventPrinter(Session &session, const Printer &printer) : session_(session), printer_(printer) {}

  void subscribeDevices();   // found, lost, context changed
  void subscribeState();     // service state changes
  void subscribeReceived();  // commands and simple messages received

  // Throws what went wrong inside a callback, if anything did.
  void rethrow() const;

 private:
  static void onFound(oxa_device_h device, void *self);
  static void onLost(oxa_device_h device, void *self);
  static void onContextChanged(oxa_device_h device, void *self);
  static void onState(oxa_service_h service, int state, void *self);
  static void onCommand(oxa_command_h command, void *self);
  static void onMessage(const char *address, const unsigned char *data, int length, void *self);

  // Runs `print` inside a library callback, where nothing may be thrown: a failure is kept for
  // rethrow() and stops the loop.
  template <typename Print>
  void guard(Print print);

  Session &session_;
  const Printer &printer_;
  std::vector<Subscription> subscriptions_;
  std::exception_ptr error_;
};

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_EVENT_PRINTER_H_
