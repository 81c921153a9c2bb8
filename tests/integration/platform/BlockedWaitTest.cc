// A proxy's thread waiting on its main port takes what the stub writes to the callback port
// meanwhile, so that a stub answering requests while it sends events is never left holding them.
#include <gtest/gtest.h>

#include <csignal>

#include "MainLoop.h"
#include "PlatformHarness.h"
#include "ProcessState.h"
#include "RawStub.h"

namespace oxa::test {
namespace {

constexpr int kReply = 42;
constexpr int kEvent = 7;

// An event and the awaited reply that land in the same wake-up of the blocked read must both be
// taken: the event into the proxy's buffer, the reply as the read's result. The proxy runs in a
// child that is stopped while it waits in the read, so that both are there when it resumes.
TEST_F(TransportTest, ReadThatWakesForItsReplyAlsoTakesTheEventBesideIt) {
  RawStub stub(context());
  ReadyPipe waiting;
  ReadyPipe replied;
  ReadyPipe finish;
  ChildProcess client = ChildProcess::spawn([&] {
    const ScopedMainContext loop;
    TestProxy proxy;
    if (proxy.connectSync() != 0) {
      return 90;
    }
    waiting.signal('w');
    int reply = 0;
    if (proxy.readReply(&reply) != 0 || reply != kReply) {
      return 91;
    }
    // Out of the loop from here on: only the blocked read can have taken the event.
    replied.signal('r');
    return finish.wait(kDefaultWait) == 'q' ? 0 : 92;
  });
  ASSERT_TRUE(stub.acceptProxy());
  ASSERT_EQ('w', waiting.wait(kDefaultWait));
  // After signalling, the client's only sleep is the read's wait on both ports.
  ASSERT_TRUE(waitProcessState(client.pid(), 'S', kDefaultWait));
  client.kill(SIGSTOP);
  ASSERT_TRUE(waitProcessState(client.pid(), 'T', kDefaultWait));
  ASSERT_TRUE(stub.callback.writeAll(frame(intBody(kEvent))));
  ASSERT_TRUE(stub.main.writeAll(frame(intBody(kReply))));
  client.kill(SIGCONT);

  ASSERT_EQ('r', replied.wait(kDefaultWait));
  EXPECT_EQ(0U, stub.callback.unreadBytes());
  EXPECT_EQ(0U, stub.main.unreadBytes());
  finish.signal('q');
  const std::optional<int> status = client.waitExit(kDefaultWait);
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status));
  EXPECT_EQ(0, WEXITSTATUS(*status));
}

}  // namespace
}  // namespace oxa::test
