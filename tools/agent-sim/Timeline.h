#ifndef OXA_TOOLS_AGENT_SIM_TIMELINE_H_
#define OXA_TOOLS_AGENT_SIM_TIMELINE_H_

#include <glib.h>

#include <functional>
#include <memory>
#include <vector>

#include "Scenario.h"

namespace oxa_sim {

// Plays the scenario's timeline on the thread-default GLib main context, once, from start().
class Timeline {
 public:
  using Player = std::function<void(const TimelineEntry &)>;

  Timeline(std::vector<TimelineEntry> entries, Player player);
  ~Timeline();
  Timeline(const Timeline &) = delete;
  Timeline &operator=(const Timeline &) = delete;

  // Arms one timer per entry; later calls do nothing.
  void start();

 private:
  struct Pending {
    Timeline *timeline;
    const TimelineEntry *entry;
    guint source;
  };

  static gboolean fire(gpointer data);

  std::vector<TimelineEntry> entries_;
  Player player_;
  std::vector<std::unique_ptr<Pending>> pending_;
  bool started_ = false;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_TIMELINE_H_
