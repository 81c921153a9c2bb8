#ifndef OXA_TOOLS_OXACTL_PRINTER_H_
#define OXA_TOOLS_OXACTL_PRINTER_H_

#include <string>
#include <vector>

#include "Bytes.h"
#include "DeviceInfo.h"
#include "Failure.h"

namespace oxactl {

// A command received, as printed.
struct CommandInfo {
  std::string address;
  int type = 0;
  int id = 0;
  Bytes payload;
};

// Writes results on standard output, one line each, as aligned text or as JSON objects, and
// flushes every line so that a reader sees events as they happen.
class Printer {
 public:
  explicit Printer(bool json) : json_(json) {}

  // A list of devices, the names padded to the longest.
  void devices(const std::vector<DeviceInfo> &devices) const;
  void device(const DeviceInfo &device) const;

  // Events: "found", "lost" or "context_changed" with a device; the others with their values.
  void deviceEvent(const char *event, const DeviceInfo &device) const;
  void state(int state) const;
  void command(const CommandInfo &command) const;
  void message(const std::string &address, const Bytes &data) const;

  // Outcomes.
  void sent(const std::string &address, int result) const;
  void published(int contextType, int result) const;

  // A failure: its message on standard error, and with --json also a JSON object on standard
  // output when a library function gave it.
  void failure(const Failure &failure) const;

 private:
  bool json_;
};

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_PRINTER_H_
