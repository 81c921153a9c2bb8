#ifndef OXA_TOOLS_OXACTL_MAIN_LOOP_H_
#define OXA_TOOLS_OXACTL_MAIN_LOOP_H_

#include <glib.h>

#include <chrono>
#include <functional>
#include <optional>

namespace oxactl {

// How a wait on the main loop ended.
enum class WaitEnd { kDone, kExpired, kStopped };

// The default GLib main context, where the library delivers its events, driven until something
// awaited has happened.
class MainLoop {
 public:
  MainLoop() = default;
  MainLoop(const MainLoop &) = delete;
  MainLoop &operator=(const MainLoop &) = delete;
  ~MainLoop();

  // Dispatches events until `done()` holds (kDone), `limit` has passed (kExpired; no limit
  // waits for ever), or stop() was called (kStopped).
  WaitEnd runUntil(const std::function<bool()> &done,
                   std::optional<std::chrono::milliseconds> limit);

  // Ends the current wait and every later one.
  void stop() { stopped_ = true; }

  // From now on SIGINT and SIGTERM stop the loop and mark it interrupted.
  void stopOnSignals();
  bool interrupted() const { return interrupted_; }

 private:
  static gboolean onSignal(gpointer self);

  bool stopped_ = false;
  bool interrupted_ = false;
  guint interruptSource_ = 0;
  guint terminateSource_ = 0;
};

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_MAIN_LOOP_H_
