#include "Scenario.h"

namespace oxa_sim {

// A living room: two appliances, an echo peer, and a sensor that comes and goes once a client
// starts discovery.
const char *builtinScenarioJson() {
  return R"json({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "Living Room TV",
     "adv_data": {"hex": "0201061aff75"},
     "contexts": [{"service": 1, "context": 1, "text": "channel 7"},
                  {"service": 1, "context": 2, "hex": "0107"}]},
    {"address": "A0:00:00:00:00:02", "type": 2, "name": "Kitchen Speaker",
     "adv_data": {"hex": "020106"},
     "contexts": [{"service": 3, "context": 3, "text": "volume 40"}]},
    {"address": "A0:00:00:00:00:03", "type": 5, "name": "Echo Peer", "echo": true,
     "adv_data": {"text": "echo"}},
    {"address": "A0:00:00:00:00:04", "type": 4, "name": "Garden Sensor", "present": false,
     "contexts": [{"service": 1, "context": 3, "text": "21.5 C"}]}
  ],
  "timeline": [
    {"at_ms": 100, "action": "appear", "address": "A0:00:00:00:00:04"},
    {"at_ms": 200, "action": "context", "address": "A0:00:00:00:00:01",
     "service": 1, "context": 1, "text": "channel 9"},
    {"at_ms": 300, "action": "message", "address": "A0:00:00:00:00:01",
     "service": 1, "text": "hello from the TV"},
    {"at_ms": 400, "action": "disappear", "address": "A0:00:00:00:00:04"}
  ]
}
)json";
}

}  // namespace oxa_sim
