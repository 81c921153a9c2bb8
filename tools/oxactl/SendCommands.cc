// send, message, publish: one operation whose outcome is printed.
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "Commands.h"
#include "Session.h"

namespace oxactl {

namespace {

constexpr std::chrono::seconds kDefaultOutcomeWait{10};

struct CommandDeleter {
  void operator()(oxa_command_h command) const { oxa_command_destroy(command); }
};
struct MessageDeleter {
  void operator()(oxa_simple_message_h message) const { oxa_simple_message_destroy(message); }
};

// The outcome of one send, filled in by its sent callback.
struct Outcome {
  std::optional<int> result;

  template <typename Handle>
  static void onSent(Handle /*sent*/, oxa_error_e result, void *self) {
    static_cast<Outcome *>(self)->result = result;
  }
};

int dataSize(const Bytes &data) {
  return static_cast<int>(data.size());
}

// Waits for the outcome of a send, prints it and turns it into the exit status.
ExitStatus awaitOutcome(Session &session, const Outcome &outcome, const Options &options,
                        const Printer &printer) {
  const std::chrono::milliseconds limit = options.timeoutOr(kDefaultOutcomeWait);
  const WaitEnd end = session.loop().runUntil([&] { return outcome.result.has_value(); }, limit);
  session.connection().checkAlive();
  if (end != WaitEnd::kDone) {
    throw Failure(ExitStatus::kTimeout, "no outcome of the send to " + options.address +
                                            " within " + std::to_string(limit.count()) + " ms");
  }
  printer.sent(options.address, *outcome.result);
  return *outcome.result == OXA_ERROR_NONE ? ExitStatus::kSuccess : ExitStatus::kOperation;
}

}  // namespace

ExitStatus runSend(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  oxa_command_h created = nullptr;
  check("oxa_command_create",
        oxa_command_create(options.address.c_str(), options.commandType, options.commandId,
                           options.data.data(), dataSize(options.data), &created));
  const std::unique_ptr<std::remove_pointer_t<oxa_command_h>, CommandDeleter> command(created);
  Outcome outcome;
  check("oxa_send_command", oxa_send_command(session.service(), command.get(),
                                             &Outcome::onSent<oxa_command_h>, &outcome));
  return awaitOutcome(session, outcome, options, printer);
}

ExitStatus runMessage(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  oxa_simple_message_h created = nullptr;
  check("oxa_simple_message_create",
        oxa_simple_message_create(options.address.c_str(), options.data.data(),
                                  dataSize(options.data), &created));
  const std::unique_ptr<std::remove_pointer_t<oxa_simple_message_h>, MessageDeleter> message(
      created);
  Outcome outcome;
  check("oxa_send_simple_message",
        oxa_send_simple_message(session.service(), message.get(),
                                &Outcome::onSent<oxa_simple_message_h>, &outcome));
  return awaitOutcome(session, outcome, options, printer);
}

ExitStatus runPublish(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  const int result =
      oxa_update_context(session.service(), static_cast<oxa_context_type_e>(options.contextType),
                         options.data.data(), dataSize(options.data));
  printer.published(options.contextType, result);
  return result == OXA_ERROR_NONE ? ExitStatus::kSuccess : ExitStatus::kOperation;
}

}  // namespace oxactl
