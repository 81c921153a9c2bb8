// The library used from several application threads at once while the main thread dispatches a
// steady stream of events from the simulator: nothing crashes, every command sent gets its sent
// callback exactly once, and every event of the stream arrives. Built with ThreadSanitizer
// (SANITIZE=thread) this test is the race check of the library's shared state.

#include <gtest/gtest.h>
#include <oxa.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "LibraryTest.h"

namespace oxa::test {
namespace {

using std::chrono::steady_clock;

constexpr const char *kEchoPeer = "A0:00:00:00:00:03";
constexpr const char *kUnknownPeer = "A0:00:00:00:00:99";
constexpr int kWorkers = 4;
constexpr std::chrono::seconds kDefaultStressTime{10};
constexpr std::chrono::seconds kDrainTime{15};

// How long the workers run: 10 s in the suite; OXA_STRESS_SECONDS asks for a longer run by hand.
std::chrono::seconds stressTime() {
  const char *seconds = std::getenv("OXA_STRESS_SECONDS");
  return seconds != nullptr && std::atoi(seconds) > 0 ? std::chrono::seconds(std::atoi(seconds))
                                                      : kDefaultStressTime;
}

// One send awaiting its sent callback: the callback records the call and destroys the handle.
struct PendingSend {
  std::atomic<int> calls{0};
  std::atomic<int> result{1};
};

// Counts of events that the workers' subscriptions receive; they come and go, so only their
// arrival (on the dispatching thread) matters, not their number.
struct WorkerEvents {
  std::atomic<int> found{0};
  std::atomic<int> lost{0};
  std::atomic<int> contextChanged{0};
  std::atomic<int> commandsReceived{0};
  std::atomic<int> messagesReceived{0};
  std::atomic<int> states{0};
  std::atomic<int> registered{0};
  std::atomic<int> foreachCalls{0};
};

void onCommandSent(oxa_command_h command, oxa_error_e result, void *data) {
  auto *pending = static_cast<PendingSend *>(data);
  pending->result = result;
  ++pending->calls;
  oxa_command_destroy(command);
}

void onMessageSent(oxa_simple_message_h message, oxa_error_e result, void *data) {
  auto *pending = static_cast<PendingSend *>(data);
  pending->result = result;
  ++pending->calls;
  oxa_simple_message_destroy(message);
}

void countDevice(oxa_device_h /*device*/, void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
}

void countCommand(oxa_command_h /*command*/, void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
}

void countMessage(const char * /*address*/, const unsigned char * /*data*/, int /*length*/,
                  void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
}

void countState(oxa_service_h /*service*/, int /*state*/, void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
}

void countRegistered(oxa_service_h /*service*/, oxa_error_e /*result*/, void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
}

bool countFoundDevice(oxa_device_h /*device*/, void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
  return true;
}

// Every send a worker made that the library accepted, each waiting for its one sent callback.
class SendLedger {
 public:
  PendingSend &open() {
    pending.push_back(std::make_unique<PendingSend>());
    return *pending.back();
  }
  // The send was refused, so no callback is owed.
  void refused() { pending.pop_back(); }

  std::vector<std::unique_ptr<PendingSend>> pending;
};

// One application thread: its own services, commands and messages, every kind of call.
class Worker {
 public:
  Worker(int index, WorkerEvents &events, const std::atomic<bool> &stop)
      : index(index), events(events), stop(stop) {}

  void run() {
    // Type 6 is the stream's: the agent drops subscriptions by type, which would end its echoes.
    const oxa_service_type_e types[] = {OXA_SERVICE_TYPE_1, OXA_SERVICE_TYPE_3};
    for (int round = 0; !stop; ++round) {
      oxa_service_h service = nullptr;
      if (oxa_service_create(types[(round + index) % 2], &service) != OXA_ERROR_NONE) {
        ++failures;
        continue;
      }
      useService(service, round);
      oxa_service_destroy(service);
      ++rounds;
    }
  }

  SendLedger commands;
  SendLedger messages;
  std::atomic<int> failures{0};
  int rounds = 0;

 private:
  void useService(oxa_service_h service, int round) {
    expectOk(oxa_service_register(service, countRegistered, &events.registered));
    expectOk(oxa_service_set_state_changed_cb(service, countState, &events.states));
    expectOk(oxa_set_device_found_cb(service, countDevice, &events.found));
    expectOk(oxa_set_device_lost_cb(service, countDevice, &events.lost));
    expectOk(oxa_set_context_changed_cb(service, countDevice, &events.contextChanged));
    expectOk(oxa_set_command_received_cb(service, countCommand, &events.commandsReceived));
    expectOk(oxa_set_simple_message_received_cb(service, countMessage, &events.messagesReceived));
    expectOk(oxa_start_discovery(service));
    int state = -1;
    expectOk(oxa_service_get_state(service, &state));
    expectOk(oxa_foreach_found_device(service, countFoundDevice, &events.foreachCalls));
    oxa_device_h mine = nullptr;
    if (oxa_get_my_device(service, "", &mine) == OXA_ERROR_NONE) {
      oxa_device_destroy(mine);
    } else {
      ++failures;
    }
    const unsigned char context[] = {static_cast<unsigned char>(round), 1, 2};
    expectOk(oxa_update_context(service, OXA_CONTEXT_TYPE_2, context, sizeof(context)));
    sendCommand(service, round % 4 == 0 ? kUnknownPeer : kEchoPeer, round);
    sendMessage(service, round);
    expectOk(oxa_stop_discovery(service));
    expectOk(oxa_unset_device_found_cb(service));
    expectOk(oxa_unset_device_lost_cb(service));
    expectOk(oxa_unset_context_changed_cb(service));
    expectOk(oxa_unset_command_received_cb(service));
    expectOk(oxa_unset_simple_message_received_cb(service));
    expectOk(oxa_service_unset_state_changed_cb(service));
    if (round % 2 == 0) {
      // Services of one type are one service to the agent, so another worker may have
      // unregistered it already: only the call's completion matters here.
      oxa_service_unregister(service);
    }
  }

  void sendCommand(oxa_service_h service, const char *address, int round) {
    const unsigned char payload[] = {'c', static_cast<unsigned char>(index),
                                     static_cast<unsigned char>(round)};
    oxa_command_h command = nullptr;
    if (oxa_command_create(address, OXA_COMMAND_TYPE_1, round, payload, sizeof(payload),
                           &command) != OXA_ERROR_NONE) {
      ++failures;
      return;
    }
    PendingSend &pending = commands.open();
    if (oxa_send_command(service, command, onCommandSent, &pending) != OXA_ERROR_NONE) {
      commands.refused();
      oxa_command_destroy(command);
      ++failures;
    }
  }

  void sendMessage(oxa_service_h service, int round) {
    const unsigned char data[] = {'w', static_cast<unsigned char>(index),
                                  static_cast<unsigned char>(round)};
    oxa_simple_message_h message = nullptr;
    if (oxa_simple_message_create(kEchoPeer, data, sizeof(data), &message) != OXA_ERROR_NONE) {
      ++failures;
      return;
    }
    PendingSend &pending = messages.open();
    if (oxa_send_simple_message(service, message, onMessageSent, &pending) != OXA_ERROR_NONE) {
      messages.refused();
      oxa_simple_message_destroy(message);
      ++failures;
    }
  }

  void expectOk(int result) {
    if (result != OXA_ERROR_NONE) {
      ++failures;
    }
  }

  int index;
  WorkerEvents &events;
  const std::atomic<bool> &stop;
};

// A steady stream of events for the main thread to dispatch: a fifth application thread sends a
// command to the echo peer every 2 ms, and each is answered by a sent event and an echoed
// command-received event. (The main thread itself makes no request: while it waited for a reply
// it would read no events, and the agent blocks once the event socket is full.)
struct Stream {
  static void onEcho(oxa_command_h /*command*/, void *stream) {
    ++static_cast<Stream *>(stream)->echoes;
  }
  static void onSent(oxa_command_h command, oxa_error_e result, void *stream) {
    auto *self = static_cast<Stream *>(stream);
    ++self->sent;
    if (result != OXA_ERROR_NONE) {
      ++self->failedSends;
    }
    oxa_command_destroy(command);
  }

  void run(const std::atomic<bool> &stop) {
    const unsigned char payload[] = {'s', 't', 'r'};
    while (!stop) {
      oxa_command_h command = nullptr;
      if (oxa_command_create(kEchoPeer, OXA_COMMAND_TYPE_2, issued, payload, sizeof(payload),
                             &command) == OXA_ERROR_NONE &&
          oxa_send_command(service, command, onSent, this) == OXA_ERROR_NONE) {
        ++issued;
      } else {
        ++failedSends;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  oxa_service_h service = nullptr;
  std::atomic<int> issued{0};
  std::atomic<int> sent{0};
  std::atomic<int> echoes{0};
  std::atomic<int> failedSends{0};
};

class ConcurrencyStressTest : public LibraryTest {
 protected:
  // Warnings and errors only: the stream's messages would fill the log with info lines.
  ConcurrencyStressTest() { setenv("DLOG_LEVEL", "W", 1); }
};

TEST_F(ConcurrencyStressTest, WorkerThreadsCallEverythingWhileEventsAreDispatched) {
  startSim();
  initialize();
  Service streamService = createService(OXA_SERVICE_TYPE_6);
  Stream stream;
  stream.service = streamService.get();
  ASSERT_EQ(oxa_set_command_received_cb(stream.service, Stream::onEcho, &stream), OXA_ERROR_NONE);

  WorkerEvents events;
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<std::thread> threads;
  for (int index = 0; index < kWorkers; ++index) {
    workers.push_back(std::make_unique<Worker>(index, events, stop));
  }
  for (auto &worker : workers) {
    threads.emplace_back([&worker] { worker->run(); });
  }
  threads.emplace_back([&] { stream.run(stop); });
  const std::chrono::seconds stressFor = stressTime();
  const auto end = steady_clock::now() + stressFor;
  runUntil([&] { return steady_clock::now() >= end; }, stressFor + std::chrono::seconds(1));
  stop = true;
  // The loop keeps running while the workers finish their last round.
  std::atomic<int> joined{0};
  std::thread joiner([&] {
    for (auto &thread : threads) {
      thread.join();
    }
    joined = 1;
  });
  ASSERT_TRUE(runUntil([&] { return joined.load() == 1; }, kDrainTime));
  joiner.join();

  // Every accepted send gets exactly one sent callback, and every stream command its echo.
  const auto allSent = [&] {
    for (auto &worker : workers) {
      for (SendLedger *ledger : {&worker->commands, &worker->messages}) {
        for (auto &pending : ledger->pending) {
          if (pending->calls.load() == 0) {
            return false;
          }
        }
      }
    }
    return stream.sent.load() == stream.issued.load() &&
           stream.echoes.load() == stream.issued.load();
  };
  EXPECT_TRUE(runUntil(allSent, kDrainTime));

  int commandsSent = 0;
  int messagesSent = 0;
  for (auto &worker : workers) {
    EXPECT_EQ(worker->failures.load(), 0);
    EXPECT_GT(worker->rounds, 0);
    for (auto &pending : worker->commands.pending) {
      EXPECT_EQ(pending->calls.load(), 1);
      ++commandsSent;
    }
    for (auto &pending : worker->messages.pending) {
      EXPECT_EQ(pending->calls.load(), 1);
      EXPECT_EQ(pending->result.load(), OXA_ERROR_NONE);
      ++messagesSent;
    }
  }
  RecordProperty("commands", commandsSent);
  RecordProperty("messages", messagesSent);
  RecordProperty("stream", stream.issued.load());
  RecordProperty("found", events.found.load());
  EXPECT_GT(commandsSent, 0);
  EXPECT_GT(messagesSent, 0);
  EXPECT_GT(stream.issued.load(), 100);
  EXPECT_EQ(stream.failedSends.load(), 0);
  EXPECT_EQ(stream.sent.load(), stream.issued.load());
  EXPECT_EQ(stream.echoes.load(), stream.issued.load());
  // The workers' subscriptions saw events too (discovery always finds the scenario's devices).
  EXPECT_GT(events.found.load(), 0);
  EXPECT_GT(events.registered.load(), 0);
  EXPECT_GT(events.foreachCalls.load(), 0);
  // The library still answers, and no stray sent callback arrives later.
  EXPECT_EQ(oxa_start_discovery(stream.service), OXA_ERROR_NONE);
  dispatchPending(context());
  EXPECT_EQ(stream.sent.load(), stream.issued.load());
}

}  // namespace
}  // namespace oxa::test
