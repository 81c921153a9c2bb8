// One GLib source attached to a main context, destroyed with this object. Events of the host
// platform are delivered only through these, on the context the handle was created on.
// Only wake() may be called from another thread; everything else belongs to the loop's thread.
#pragma once

#include <glib-unix.h>
#include <glib.h>

namespace platform {

class LoopSource {
 public:
  LoopSource() = default;
  LoopSource(const LoopSource &) = delete;
  LoopSource &operator=(const LoopSource &) = delete;
  ~LoopSource() { stop(); }

  // Calls `callback(fd, condition, data)` whenever `fd` meets `condition`.
  void watchFd(GMainContext *context, int fd, GIOCondition condition, GUnixFDSourceFunc callback,
               void *data);
  // Calls `callback(data)` on the next loop iteration.
  void idle(GMainContext *context, GSourceFunc callback, void *data);
  // Calls `callback(data)` after `ms` milliseconds.
  void timeout(GMainContext *context, unsigned ms, GSourceFunc callback, void *data);
  // Attaches a source that stays idle until wake(); each wake-up calls `callback(data)` once on
  // the loop (wake-ups before it runs merge into one).
  void onWake(GMainContext *context, GSourceFunc callback, void *data);
  // Makes an onWake() source run; safe from any thread while this object exists.
  void wake();
  void stop();
  // Lets the current source be dispatched while its callback runs (from a nested loop). GLib
  // otherwise blocks a source for each dispatch: it takes the fd out of the poll set and puts it
  // back, and each of those writes the context's wake-up fd, which costs two system calls and a
  // second, empty loop iteration per dispatch.
  void allowRecursion() { g_source_set_can_recurse(source_, TRUE); }
  bool active() const { return source_ != nullptr; }

 private:
  void attach(GMainContext *context, GSource *source);

  GSource *source_ = nullptr;
};

}  // namespace platform
