#include "MainLoop.h"

#include <glib-unix.h>

#include <csignal>

namespace oxactl {

namespace {

// A GLib timeout on the default context that sets a flag; removed with this object.
class Alarm {
 public:
  explicit Alarm(std::chrono::milliseconds after)
      : source_(g_timeout_add(static_cast<guint>(after.count()), &Alarm::ring, &rung_)) {}
  Alarm(const Alarm &) = delete;
  Alarm &operator=(const Alarm &) = delete;
  ~Alarm() {
    if (!rung_) {
      g_source_remove(source_);
    }
  }

  bool rung() const { return rung_; }

 private:
  static gboolean ring(gpointer rung) {
    *static_cast<bool *>(rung) = true;
    return G_SOURCE_REMOVE;
  }

  bool rung_ = false;
  guint source_;
};

}  // namespace

MainLoop::~MainLoop() {
  for (const guint source : {interruptSource_, terminateSource_}) {
    if (source != 0) {
      g_source_remove(source);
    }
  }
}

WaitEnd MainLoop::runUntil(const std::function<bool()> &done,
                           std::optional<std::chrono::milliseconds> limit) {
  std::optional<Alarm> alarm;
  if (limit) {
    alarm.emplace(*limit);
  }
  for (;;) {
    if (done()) {
      return WaitEnd::kDone;
    }
    if (stopped_) {
      return WaitEnd::kStopped;
    }
    if (alarm && alarm->rung()) {
      return WaitEnd::kExpired;
    }
    g_main_context_iteration(nullptr, TRUE);
  }
}

void MainLoop::stopOnSignals() {
  interruptSource_ = g_unix_signal_add(SIGINT, &MainLoop::onSignal, this);
  terminateSource_ = g_unix_signal_add(SIGTERM, &MainLoop::onSignal, this);
}

gboolean MainLoop::onSignal(gpointer self) {
  auto *loop = static_cast<MainLoop *>(self);
  loop->interrupted_ = true;
  loop->stop();
  return G_SOURCE_CONTINUE;
}

}  // namespace oxactl
