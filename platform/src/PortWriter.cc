#include "PortWriter.h"

namespace platform {

PortWriter::PortWriter(GMainContext *context, Port &port, size_t queueLimit,
                       std::function<void()> onWritten, std::function<void()> onBroken)
    : context_(context),
      port_(port),
      onWritten_(std::move(onWritten)),
      onBroken_(std::move(onBroken)) {
  wakeUp_.onWake(context_, onWake, this);
  port_.queueSends(queueLimit, [this] { wakeUp_.wake(); });
}

void PortWriter::hold() {
  port_.cork(true);
}

// Whatever the socket did not take, or a write that broke the connection, is the loop's to handle.
void PortWriter::release() {
  port_.cork(false);
  if (port_.queuedBytes() > 0 || port_.broken()) {
    flush();
  }
}

void PortWriter::stop() {
  wakeUp_.stop();
  writable_.stop();
}

void PortWriter::flush() {
  const FlushResult result = port_.flush();
  if (result == FlushResult::kFailed) {
    stop();
    onBroken_();
    return;
  }
  if (result == FlushResult::kDone) {
    writable_.stop();
  } else if (!writable_.active()) {
    writable_.watchFd(context_, port_.fd(), static_cast<GIOCondition>(G_IO_OUT | G_IO_ERR),
                      onWritable, this);
  }
  onWritten_();
}

gboolean PortWriter::onWake(void *self) {
  static_cast<PortWriter *>(self)->flush();
  return G_SOURCE_CONTINUE;
}

gboolean PortWriter::onWritable(int /*fd*/, GIOCondition /*condition*/, void *self) {
  static_cast<PortWriter *>(self)->flush();
  return G_SOURCE_CONTINUE;
}

}  // namespace platform
