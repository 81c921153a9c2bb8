#include "StubClient.h"

#include "Runtime.h"
#include "Stub.h"

namespace platform {

namespace {

// Unwritten bytes past which a connection's requests wait: well under the default queue bound,
// and enough to keep its socket busy.
constexpr size_t kPauseReadingAbove = size_t{4} << 20;

}  // namespace

StubClient::StubClient(Stub &stub, std::string sender, std::string instance, unsigned serial,
                       std::unique_ptr<Port> main)
    : stub_(stub),
      sender_(std::move(sender)),
      serial_(serial),
      instance_(std::move(instance)),
      main_(std::move(main)) {
  watchMain(true);
  joinTimer_.timeout(stub_.context(), static_cast<unsigned>(readTimeoutMs()), onJoinTimeout, this);
}

Port *StubClient::port(rpc_port_port_type_e type) const {
  if (state_ == State::kAwaitCallback) {
    return nullptr;
  }
  return type == RPC_PORT_PORT_MAIN ? main_.get() : callback_.get();
}

void StubClient::attachCallback(std::unique_ptr<Port> callback) {
  callback_ = std::move(callback);
  state_ = State::kConnected;
  joinTimer_.stop();
  const size_t limit = sendQueueLimit();
  const auto written = [this] { resumeReadingIfWritten(); };
  const auto broken = [this] { end(); };
  mainWriter_.emplace(stub_.context(), *main_, limit, written, broken);
  callbackWriter_.emplace(stub_.context(), *callback_, limit, written, broken);
  // Proxies never send on their callback port; the stub only needs to notice it hang up.
  callbackWatch_.watchFd(stub_.context(), callback_->fd(),
                         static_cast<GIOCondition>(G_IO_HUP | G_IO_ERR), onCallbackHangUp, this);
}

void StubClient::close() {
  state_ = State::kClosed;
  mainWatch_.stop();
  callbackWatch_.stop();
  joinTimer_.stop();
  for (std::optional<PortWriter> *writer : {&mainWriter_, &callbackWriter_}) {
    if (writer->has_value()) {
      (*writer)->stop();
    }
  }
  for (Port *port : {main_.get(), callback_.get()}) {
    if (port != nullptr) {
      port->close();
    }
  }
}

void StubClient::end() {
  if (state_ == State::kClosed) {
    return;
  }
  const std::shared_ptr<Stub> stub = stub_.shared_from_this();
  const bool wasConnected = state_ == State::kConnected;
  close();
  if (wasConnected) {
    stub->reportDisconnected(*this);
  }
  stub->retire(*this);
}

void StubClient::watchMain(bool forRequests) {
  const auto condition =
      static_cast<GIOCondition>(forRequests ? G_IO_IN | G_IO_HUP | G_IO_ERR : G_IO_HUP | G_IO_ERR);
  mainWatch_.watchFd(stub_.context(), main_->fd(), condition, onMainReadable, this);
  // Dispatched once per request: the agent answering it should cost one loop iteration, not two.
  // Should a received callback run a nested loop, the frames it dispatches there are still taken
  // in order, and the outer dispatch skips those.
  mainWatch_.allowRecursion();
}

void StubClient::pauseReadingIfBacklogged() {
  if (state_ == State::kConnected && !readingPaused_ && unwrittenBytes() > kPauseReadingAbove) {
    readingPaused_ = true;
    watchMain(false);
  }
}

void StubClient::resumeReadingIfWritten() {
  if (state_ == State::kConnected && readingPaused_ && unwrittenBytes() <= kPauseReadingAbove) {
    readingPaused_ = false;
    watchMain(true);
  }
}

size_t StubClient::unwrittenBytes() {
  return main_->queuedBytes() + callback_->queuedBytes();
}

// One `received` per complete frame; a frame the callback leaves is dropped so the loop moves on.
// What the callbacks send leaves once they are done, in one write per port: an answer with its
// events is then two system calls, not one per frame.
void StubClient::dispatchFrames() {
  if (state_ != State::kConnected) {
    return;
  }
  mainWriter_->hold();
  callbackWriter_->hold();
  dispatchHeldFrames();
  releaseWriters();
}

// Answers first, then events, as they were sent; a client ended meanwhile dropped both.
void StubClient::releaseWriters() {
  if (state_ == State::kConnected) {
    mainWriter_->release();
  }
  if (state_ == State::kConnected) {
    callbackWriter_->release();
  }
}

void StubClient::dispatchHeldFrames() {
  while (state_ == State::kConnected && main_->bufferedFrame() == FrameState::kComplete) {
    const uint64_t taken = main_->framesTaken();
    const int verdict = stub_.reportReceived(*this);
    if (state_ != State::kConnected) {
      return;
    }
    if (verdict != 0) {
      // What the callback sent before it gave up on the client still goes out.
      releaseWriters();
      end();
      return;
    }
    if (main_->framesTaken() == taken) {
      main_->dropFrame();
    }
  }
}

gboolean StubClient::onMainReadable(int /*fd*/, GIOCondition /*condition*/, void *self) {
  auto *client = static_cast<StubClient *>(self);
  const std::shared_ptr<Stub> stub = client->stub_.shared_from_this();
  const bool open = client->main_->fillAvailable();
  if (client->state_ == State::kAwaitCallback) {
    // Nothing may arrive before the connection is complete.
    client->end();
    return G_SOURCE_CONTINUE;
  }
  if (client->main_->broken()) {
    client->end();
    return G_SOURCE_CONTINUE;
  }
  client->dispatchFrames();
  if (client->state_ == State::kConnected &&
      (!open || client->main_->broken() || client->main_->bufferedFrame() == FrameState::kBroken)) {
    client->end();
  }
  client->pauseReadingIfBacklogged();
  return G_SOURCE_CONTINUE;
}

gboolean StubClient::onCallbackHangUp(int /*fd*/, GIOCondition /*condition*/, void *self) {
  static_cast<StubClient *>(self)->end();
  return G_SOURCE_CONTINUE;
}

gboolean StubClient::onJoinTimeout(void *self) {
  static_cast<StubClient *>(self)->end();
  return G_SOURCE_CONTINUE;
}

}  // namespace platform
