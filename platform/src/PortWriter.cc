#include "PortWriter.h"

namespace platform {

PortWriter::PortWriter(GMainContext *context, Port &port, size_t queueLimit,
                       std::function<void()> onBroken)
    : context_(context), port_(port), onBroken_(std::move(onBroken)) {
  wakeUp_.onWake(context_, onWake, this);
  port_.queueSends(queueLimit, [this] { wakeUp_.wake(); });
}

void PortWriter::stop() {
  wakeUp_.stop();
  writable_.stop();
}

void PortWriter::flush() {
  switch (port_.flush()) {
    case FlushResult::kDone:
      writable_.stop();
      break;
    case FlushResult::kPending:
      if (!writable_.active()) {
        writable_.watchFd(context_, port_.fd(), static_cast<GIOCondition>(G_IO_OUT | G_IO_ERR),
                          onWritable, this);
      }
      break;
    case FlushResult::kFailed:
      stop();
      onBroken_();
      break;
  }
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
