// The C++ twin of oxa_example.c: the same client of the OXA agent through <oxa.hpp>.
//
// It connects to the agent, registers a service, starts discovery and prints every device the
// agent knows (name, address, type, raw advertised data), sends a simple message and a command
// to a peer as soon as the peer is among the devices found, prints their outcomes and anything
// received meanwhile, cleans up and exits: 0 when everything went through, 1 otherwise. It gives
// up after ten seconds.
//
// Build:  c++ -std=c++17 oxa_example.cpp $(pkg-config --cflags --libs oxa glib-2.0)
// Usage:  oxa_example_cpp [PEER_ADDRESS]      (default 02:00:00:00:00:01)
#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <oxa.hpp>
#include <string>
#include <string_view>
#include <system_error>

namespace {

constexpr const char *kDefaultPeer = "02:00:00:00:00:01";
// Six bytes as two hexadecimal digits each, separated by colons.
constexpr std::size_t kPeerAddressLength = 17;
constexpr unsigned kTimeoutSeconds = 10;
// How long to listen for incoming traffic once both sends are answered.
constexpr unsigned kLingerMilliseconds = 500;

std::string hex(oxa::ByteView bytes) {
  if (bytes.empty()) {
    return "none";
  }
  std::string text;
  char digits[4];
  for (std::uint8_t byte : bytes) {
    std::snprintf(digits, sizeof(digits), "%s%02x", text.empty() ? "" : " ", byte);
    text += digits;
  }
  return text;
}

std::string orUnknown(const oxa::Result<std::string> &text) {
  return text ? *text : "?";
}

// Prints a device; the view is valid only during the callback, so everything is read here.
void printDevice(const char *what, const oxa::DeviceView &device) {
  const oxa::Result<oxa_device_type_e> type = device.type();
  std::cout << what << ": name=" << orUnknown(device.name())
            << " address=" << orUnknown(device.address())
            << " type=" << (type ? *type : OXA_DEVICE_TYPE_UNKNOWN) << " raw=";
  const oxa::Result<std::optional<oxa::Bytes>> raw = device.raw_context();
  if (!raw) {
    std::cout << "error " << raw.error().value();
  } else {
    std::cout << (*raw ? hex(**raw) : "none");
  }
  std::cout << "\n";
}

class Example {
 public:
  Example(GMainLoop *loop, std::string peer) : loop(loop), peer(std::move(peer)) {}

  bool start() {
    oxa::Result<oxa::Connection> opened =
        oxa::Connection::open([this](std::error_code result) { onConnection(result); });
    if (!opened) {
      std::cerr << "cannot start connecting: " << opened.error().value() << "\n";
      return false;
    }
    connection = std::move(opened).value();
    return true;
  }

  // Ends every subscription and gives back everything the example owns: the service's
  // destructor ends its subscriptions, the connection's leaves the agent.
  void cleanUp() {
    if (service && discovering && connection->connected()) {
      static_cast<void>(service->stop_discovery());
    }
    service.reset();
    connection.reset();
  }

  bool failed() const { return failedFlag; }

  static gboolean onTimeout(gpointer self) {
    std::cerr << "timed out after " << kTimeoutSeconds << " seconds\n";
    static_cast<Example *>(self)->finish(true);
    return G_SOURCE_REMOVE;
  }

 private:
  void finish(bool failure) {
    failedFlag = failedFlag || failure;
    g_main_loop_quit(loop);
  }

  // Reports the connection, and later its loss.
  void onConnection(std::error_code result) {
    if (result) {
      std::cerr << (connected ? "connection lost" : "cannot connect") << ": " << result.value()
                << "\n";
      connected = false;
      finish(true);
      return;
    }
    std::cout << "connected to the agent\n";
    connected = true;
    if (!startService()) {
      finish(true);
    }
  }

  // Simple messages travel as commands: with both subscriptions set, each incoming command also
  // reaches the message callback (its payload unwrapped), and each message the command callback.
  bool startService() {
    oxa::Result<oxa::Service> created = oxa::Service::create(OXA_SERVICE_TYPE_1);
    if (!created) {
      std::cerr << "setting up the service failed: " << created.error().value() << "\n";
      return false;
    }
    service = std::move(created).value();
    oxa::Result<void> result = service->on_device_found([this](const oxa::DeviceView &device) {
      printDevice("found device", device);
      sendWhenPeer(device);
    });
    if (result) {
      result = service->on_command_received(printCommand);
    }
    if (result) {
      result = service->on_simple_message_received([](std::string_view from, oxa::ByteView data) {
        std::cout << "received message from " << from << ": " << hex(data) << "\n";
      });
    }
    if (result) {
      result = service->register_service([this](std::error_code code) { onRegistered(code); });
    }
    if (!result) {
      std::cerr << "setting up the service failed: " << result.error().value() << "\n";
      return false;
    }
    return true;
  }

  static void printCommand(const oxa::CommandView &command) {
    const oxa::Result<oxa_command_type_e> type = command.type();
    const oxa::Result<int> id = command.id();
    const oxa::Result<oxa::Bytes> payload = command.payload();
    std::cout << "received command from " << orUnknown(command.address())
              << ": type=" << (type ? *type : 0) << " id=" << (id ? *id : 0)
              << " payload=" << (payload ? hex(*payload) : "none") << "\n";
  }

  void onRegistered(std::error_code result) {
    if (result) {
      std::cerr << "registering the service failed: " << result.value() << "\n";
      finish(true);
      return;
    }
    std::cout << "service registered\n";
    if (const oxa::Result<void> started = service->start_discovery(); !started) {
      std::cerr << "starting discovery failed: " << started.error().value() << "\n";
      finish(true);
      return;
    }
    discovering = true;
    const oxa::Result<void> listed = service->for_each_found_device([this](const auto &device) {
      printDevice("known device", device);
      sendWhenPeer(device);
    });
    if (!listed) {
      std::cerr << "listing the found devices failed: " << listed.error().value() << "\n";
    }
    if (!sent) {
      std::cout << "waiting for " << peer << " to be found\n";
    }
  }

  // The peer may show up later (another application starting, say): send once it is found.
  void sendWhenPeer(const oxa::DeviceView &device) {
    const oxa::Result<std::string> address = device.address();
    if (discovering && !sent && address && *address == peer && !sendBoth()) {
      finish(true);
    }
  }

  bool sendBoth() {
    static const std::uint8_t payload[] = {0x01, 0x02, 0x03};
    oxa::Result<oxa::SimpleMessage> message =
        oxa::SimpleMessage::create(peer, oxa::ByteView::of("hello"));
    oxa::Result<oxa::Command> command = oxa::Command::create(peer, OXA_COMMAND_TYPE_1, 1, payload);
    if (!message || !command) {
      std::cerr << "invalid peer address '" << peer << "' (17 characters expected)\n";
      return false;
    }
    sent = true;
    // The service keeps each sent object until its outcome has arrived.
    oxa::Result<void> result = service->send(
        std::move(message).value(), [this](const oxa::SimpleMessage &, std::error_code code) {
          outcomeArrived("simple message", code);
        });
    if (!result) {
      std::cerr << "sending the simple message failed: " << result.error().value() << "\n";
      return false;
    }
    ++outcomesAwaited;
    result = service->send(
        std::move(command).value(),
        [this](const oxa::Command &, std::error_code code) { outcomeArrived("command", code); });
    if (!result) {
      std::cerr << "sending the command failed: " << result.error().value() << "\n";
      return false;
    }
    ++outcomesAwaited;
    return true;
  }

  // Both sends report here; once both are answered, listen a little longer, then stop.
  void outcomeArrived(const char *what, std::error_code result) {
    std::cout << what << " sent: result=" << result.value() << "\n";
    failedFlag = failedFlag || static_cast<bool>(result);
    if (--outcomesAwaited == 0) {
      g_timeout_add(kLingerMilliseconds, &Example::onLingerOver, this);
    }
  }

  static gboolean onLingerOver(gpointer self) {
    static_cast<Example *>(self)->finish(false);
    return G_SOURCE_REMOVE;
  }

  GMainLoop *loop;
  std::string peer;
  std::optional<oxa::Connection> connection;
  std::optional<oxa::Service> service;
  bool connected = false;
  bool discovering = false;
  bool sent = false;
  int outcomesAwaited = 0;
  bool failedFlag = false;
};

}  // namespace

int main(int argc, char **argv) {
  const std::string peer = argc > 1 ? argv[1] : kDefaultPeer;
  if (peer.size() != kPeerAddressLength) {
    std::cerr << "usage: " << argv[0] << " [PEER_ADDRESS]  (like " << kDefaultPeer << ")\n";
    return EXIT_FAILURE;
  }
  GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
  Example example(loop, peer);
  if (!example.start()) {
    g_main_loop_unref(loop);
    return EXIT_FAILURE;
  }
  const guint timeout = g_timeout_add_seconds(kTimeoutSeconds, &Example::onTimeout, &example);
  g_main_loop_run(loop);
  if (g_main_context_find_source_by_id(nullptr, timeout) != nullptr) {
    g_source_remove(timeout);
  }
  example.cleanUp();
  g_main_loop_unref(loop);
  std::cout << (example.failed() ? "failed" : "done") << "\n";
  return example.failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}
