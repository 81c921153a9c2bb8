#include "Timeline.h"

namespace oxa_sim {

Timeline::Timeline(std::vector<TimelineEntry> entries, Player player)
    : entries_(std::move(entries)), player_(std::move(player)) {}

Timeline::~Timeline() {
  for (const auto &pending : pending_) {
    if (pending->source != 0) {
      g_source_remove(pending->source);
    }
  }
}

void Timeline::start() {
  if (started_) {
    return;
  }
  started_ = true;
  for (const TimelineEntry &entry : entries_) {
    pending_.push_back(std::make_unique<Pending>(Pending{this, &entry, 0}));
    Pending *pending = pending_.back().get();
    pending->source = g_timeout_add(static_cast<guint>(entry.atMs), &Timeline::fire, pending);
  }
}

gboolean Timeline::fire(gpointer data) {
  auto *pending = static_cast<Pending *>(data);
  pending->source = 0;
  pending->timeline->player_(*pending->entry);
  return G_SOURCE_REMOVE;
}

}  // namespace oxa_sim
