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
