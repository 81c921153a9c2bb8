// Driving a GLib main context from a test.
//
//   oxa::test::ScopedMainContext context;   // thread-default for this scope
//   ... create proxies/stubs (they deliver their events on `context`) ...
//   ASSERT_TRUE(oxa::test::runUntil(context.get(), [&] { return connected; }));
#pragma once

#include <glib.h>

#include <chrono>
#include <functional>

namespace oxa::test {

constexpr std::chrono::milliseconds kDefaultWait{5000};

// Dispatches `context` until `done()` holds (true) or `timeout` has passed (false). `done` is
// checked after every dispatch and at least every few milliseconds, so it may also watch state
// changed by other threads.
bool runUntil(GMainContext *context, const std::function<bool()> &done,
              std::chrono::milliseconds timeout = kDefaultWait);

// Dispatches whatever `context` has ready now, without blocking.
void dispatchPending(GMainContext *context);

// A new main context, pushed as the thread-default one for the lifetime of this object.
class ScopedMainContext {
 public:
  ScopedMainContext();
  ScopedMainContext(const ScopedMainContext &) = delete;
  ScopedMainContext &operator=(const ScopedMainContext &) = delete;
  ~ScopedMainContext();

  GMainContext *get() const { return context_; }

 private:
  GMainContext *context_;
};

}  // namespace oxa::test
