#include "LoopSource.h"

namespace platform {

void LoopSource::watchFd(GMainContext *context, int fd, GIOCondition condition,
                         GUnixFDSourceFunc callback, void *data) {
  GSource *source = g_unix_fd_source_new(fd, condition);
  g_source_set_callback(source, reinterpret_cast<GSourceFunc>(reinterpret_cast<void *>(callback)),
                        data, nullptr);
  attach(context, source);
}

void LoopSource::idle(GMainContext *context, GSourceFunc callback, void *data) {
  GSource *source = g_idle_source_new();
  g_source_set_callback(source, callback, data, nullptr);
  attach(context, source);
}

void LoopSource::timeout(GMainContext *context, unsigned ms, GSourceFunc callback, void *data) {
  GSource *source = g_timeout_source_new(ms);
  g_source_set_callback(source, callback, data, nullptr);
  attach(context, source);
}

namespace {

// A source with no fd and no timer: it runs when its ready time is set, and disarms itself first
// so that a wake-up arriving during the callback runs it again.
gboolean dispatchWake(GSource *source, GSourceFunc callback, void *data) {
  g_source_set_ready_time(source, -1);
  return callback(data);
}

GSourceFuncs wakeFuncs = {nullptr, nullptr, dispatchWake, nullptr, nullptr, nullptr};

}  // namespace

void LoopSource::onWake(GMainContext *context, GSourceFunc callback, void *data) {
  GSource *source = g_source_new(&wakeFuncs, sizeof(GSource));
  g_source_set_ready_time(source, -1);
  g_source_set_callback(source, callback, data, nullptr);
  attach(context, source);
}

void LoopSource::wake() {
  // Thread-safe: takes the context's lock and wakes its poll.
  if (source_ != nullptr) {
    g_source_set_ready_time(source_, 0);
  }
}

void LoopSource::attach(GMainContext *context, GSource *source) {
  stop();
  g_source_attach(source, context);
  source_ = source;
}

void LoopSource::stop() {
  if (source_ != nullptr) {
    g_source_destroy(source_);
    g_source_unref(source_);
    source_ = nullptr;
  }
}

}  // namespace platform
