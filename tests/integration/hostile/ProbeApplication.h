// The application that the hostile-agent tests run in a child process (so that its peak memory is
// its own to measure): it connects to the agent, subscribes to every event, lists the found
// devices, starts discovery and then waits for the device named kMarkerName.
#ifndef OXA_TESTS_INTEGRATION_HOSTILE_PROBE_APPLICATION_H_
#define OXA_TESTS_INTEGRATION_HOSTILE_PROBE_APPLICATION_H_

#include <string>

namespace oxa::test {

// The name of the device in the valid event that every hostile script sends last.
constexpr char kMarkerName[] = "marker";

// Runs the probe's steps against the agent and returns its report, one "name value" per line:
//   initialized_<n>      result of the n-th initialize callback (1-based)
//   list_result/list_ms/listed   oxa_foreach_found_device: result, duration, devices listed
//   discovery_result/discovery_ms  the first oxa_start_discovery
//   rediscovery_result   oxa_start_discovery after reconnecting, when the connection was lost
//   found/lost/context/commands/messages/states  events counted per kind (marker excluded)
//   marker_ms            from the last discovery's return to the marker's arrival; -1 if never
//   peak_rss_kb          VmHWM, the process's peak resident size since the probe started
std::string runProbeApplication();

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_HOSTILE_PROBE_APPLICATION_H_
