// Writes a port's queued sends from the event loop: a sender on any thread wakes it when frames
// are waiting, and it then watches the socket for room until the queue is empty.
#pragma once

#include <functional>

#include "LoopSource.h"
#include "Port.h"

namespace platform {

class PortWriter {
 public:
  // From now on `port` queues its sends (see Port::queueSends) and this writer flushes them on
  // `context`; `onWritten` runs there after each flush that leaves the connection up, `onBroken`
  // when the connection breaks while writing or overflows.
  PortWriter(GMainContext *context, Port &port, size_t queueLimit, std::function<void()> onWritten,
             std::function<void()> onBroken);
  PortWriter(const PortWriter &) = delete;
  PortWriter &operator=(const PortWriter &) = delete;
  ~PortWriter() = default;

  // Holds back what is sent from now on until release(), which writes it all at once.
  void hold();
  void release();
  // Stops writing; queued frames are dropped with the port.
  void stop();

 private:
  void flush();

  static gboolean onWake(void *self);
  static gboolean onWritable(int fd, GIOCondition condition, void *self);

  GMainContext *context_;
  Port &port_;
  std::function<void()> onWritten_;
  std::function<void()> onBroken_;
  LoopSource wakeUp_;
  LoopSource writable_;
};

}  // namespace platform
