#include "MainLoop.h"

namespace oxa::test {

namespace {

// How often `done` is re-checked while nothing is dispatched.
constexpr guint kRecheckMs = 5;

gboolean keepTicking(gpointer /*unused*/) {
  return G_SOURCE_CONTINUE;
}

}  // namespace

bool runUntil(GMainContext *context, const std::function<bool()> &done,
              std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  GSource *tick = g_timeout_source_new(kRecheckMs);
  g_source_set_callback(tick, keepTicking, nullptr, nullptr);
  g_source_attach(tick, context);
  bool held = done();
  while (!held && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(context, TRUE);
    held = done();
  }
  g_source_destroy(tick);
  g_source_unref(tick);
  return held;
}

void dispatchPending(GMainContext *context) {
  while (g_main_context_iteration(context, FALSE)) {
  }
}

ScopedMainContext::ScopedMainContext() : context_(g_main_context_new()) {
  g_main_context_push_thread_default(context_);
}

ScopedMainContext::~ScopedMainContext() {
  g_main_context_pop_thread_default(context_);
  g_main_context_unref(context_);
}

}  // namespace oxa::test
