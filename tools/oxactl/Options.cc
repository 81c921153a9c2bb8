#include "Options.h"

#include <CLI/CLI.hpp>
#include <cctype>
#include <cmath>
#include <map>
#include <stdexcept>

namespace oxactl {

namespace {

constexpr char kDescription[] =
    "oxactl: the OXA multi-device service from the shell. Connects to the agent, registers a "
    "service and discovers devices, reads their data, publishes this application's context, "
    "sends commands and messages, and prints events.";

constexpr char kFooter[] =
    "DATA is one of --text STRING, --hex HEXDIGITS or --file PATH (- for standard input).\n"
    "Exit status: 0 success, 2 bad usage, 3 the connection to the agent failed or was rejected,\n"
    "4 an operation returned or reported an error, 5 nothing came before --timeout.";

constexpr size_t kAddressLength = 17;

// Where the bytes of DATA come from; exactly one is given.
struct DataSource {
  std::string text;
  std::string hex;
  std::string file;
};

bool isAddress(const std::string &text) {
  if (text.size() != kAddressLength) {
    return false;
  }
  for (size_t i = 0; i < text.size(); ++i) {
    const bool colon = i % 3 == 2;
    if (colon ? text[i] != ':' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) {
      return false;
    }
  }
  return true;
}

const CLI::Validator kAddress(
    [](const std::string &text) {
      return isAddress(text) ? std::string()
                             : "expected six hexadecimal byte pairs such as A0:00:00:00:00:03, "
                               "got " +
                                   text;
    },
    "");

const CLI::Validator kHexDigits(
    [](const std::string &text) {
      return fromHex(text) ? std::string() : "expected an even number of hexadecimal digits";
    },
    "");

// Up to a year, so that the milliseconds fit any timer.
constexpr double kMaxSeconds = 365.0 * 24 * 60 * 60;

const CLI::Validator kSeconds(
    [](const std::string &text) {
      try {
        size_t end = 0;
        const double seconds = std::stod(text, &end);
        if (end == text.size() && seconds >= 0 && seconds <= kMaxSeconds) {
          return std::string();
        }
      } catch (const std::logic_error &) {
      }
      return "expected a number of seconds from 0 to one year, got " + text;
    },
    "");

std::optional<ContextPair> parseContextPair(const std::string &text) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos) {
    return std::nullopt;
  }
  try {
    size_t serviceEnd = 0;
    size_t contextEnd = 0;
    const int service = std::stoi(text.substr(0, colon), &serviceEnd);
    const int context = std::stoi(text.substr(colon + 1), &contextEnd);
    if (serviceEnd != colon || contextEnd != text.size() - colon - 1) {
      return std::nullopt;
    }
    return ContextPair{service, context};
  } catch (const std::logic_error &) {
    return std::nullopt;
  }
}

const CLI::Validator kContextPair(
    [](const std::string &text) {
      return parseContextPair(text) ? std::string()
                                    : "expected SERVICE_TYPE:CONTEXT_TYPE such as 1:2, got " + text;
    },
    "");

void addDataOptions(CLI::App &command, DataSource &data) {
  CLI::Option_group *group =
      command.add_option_group("DATA", "The bytes to send: exactly one of these");
  group->add_option("--text", data.text, "The bytes of STRING")->type_name("STRING");
  group->add_option("--hex", data.hex, "The bytes written as hexadecimal digits")
      ->type_name("HEXDIGITS")
      ->check(kHexDigits);
  group->add_option("--file", data.file, "The bytes of the file PATH, or of standard input for -")
      ->type_name("PATH");
  group->require_option(1);
}

Bytes resolveData(const DataSource &data) {
  if (!data.file.empty()) {
    try {
      return readFile(data.file);
    } catch (const std::runtime_error &error) {
      throw CLI::ValidationError("--file", error.what());
    }
  }
  if (!data.hex.empty()) {
    return *fromHex(data.hex);
  }
  return {data.text.begin(), data.text.end()};
}

CLI::App *addAddressCommand(CLI::App &app, const char *name, const char *help,
                            std::string &address) {
  CLI::App *command = app.add_subcommand(name, help);
  command->add_option("ADDRESS", address, "The device's address, e.g. A0:00:00:00:00:03")
      ->type_name("ADDRESS")
      ->required()
      ->check(kAddress);
  return command;
}

// Defines every command; returns which CLI11 subcommand stands for which command.
std::map<const CLI::App *, Command> addCommands(CLI::App &app, Options &options, DataSource &data,
                                                std::vector<std::string> &contexts) {
  std::map<const CLI::App *, Command> commands;
  commands[app.add_subcommand("me", "Print this application's own device: address, type, name")] =
      Command::kMe;
  commands[app.add_subcommand("devices",
                              "Start discovery, wait --timeout (default 2 s), then list the "
                              "devices the agent found: address, type, name, advertised data")] =
      Command::kDevices;
  commands[app.add_subcommand("scan",
                              "Print each device found, lost or whose context changed, as it "
                              "happens, until --timeout (default: until Ctrl-C)")] = Command::kScan;

  CLI::App *info = addAddressCommand(
      app, "info",
      "Print a device's address, type, name, advertised data, and the context data of each "
      "--context pair",
      options.address);
  info->add_option("--context", contexts,
                   "Also read the context data of service type S and context type C "
                   "(repeatable)")
      ->type_name("S:C")
      ->check(kContextPair)
      ->allow_extra_args(false);
  commands[info] = Command::kInfo;

  CLI::App *publish =
      app.add_subcommand("publish", "Publish this application's own context data of one type");
  publish->add_option("CONTEXT_TYPE", options.contextType, "The context type: 2, 3 or 6")
      ->required()
      ->check(CLI::IsMember({2, 3, 6}));
  addDataOptions(*publish, data);
  commands[publish] = Command::kPublish;

  CLI::App *send = addAddressCommand(
      app, "send",
      "Send a command to a device, wait up to --timeout (default 10 s) for its outcome and "
      "print it",
      options.address);
  send->add_option("--type", options.commandType, "The command type: 1, 2 or 3")
      ->required()
      ->check(CLI::Range(1, 3));
  send->add_option("--id", options.commandId, "The command id")->required();
  addDataOptions(*send, data);
  commands[send] = Command::kSend;

  CLI::App *message = addAddressCommand(
      app, "message",
      "Send a simple message to a device, wait up to --timeout (default 10 s) for its outcome "
      "and print it",
      options.address);
  addDataOptions(*message, data);
  commands[message] = Command::kMessage;

  CLI::App *monitor = app.add_subcommand(
      "monitor",
      "Print every event (service state, found, lost, context changed, command and message "
      "received) until --timeout or Ctrl-C");
  monitor->add_flag("--scan", options.scan, "Also start discovery");
  commands[monitor] = Command::kMonitor;
  return commands;
}

void addGlobalOptions(CLI::App &app, Options &options, double &timeoutSeconds) {
  app.add_option("--service", options.serviceType, "The service type to register: 1, 3 or 6")
      ->check(CLI::IsMember({1, 3, 6}))
      ->capture_default_str();
  app.add_option("--timeout", timeoutSeconds,
                 "How long devices waits, scan and monitor run, send and message wait for the "
                 "outcome")
      ->type_name("SECONDS")
      ->check(kSeconds);
  app.add_flag("--json", options.json, "Print one JSON object per line");
}

}  // namespace

std::optional<Options> parseOptions(int argc, char **argv, ExitStatus &status) {
  CLI::App app{kDescription, "oxactl"};
  app.footer(kFooter);
  app.require_subcommand(1);
  // Global options may also follow the command: oxactl devices --timeout 1.
  app.fallthrough();
  Options options;
  DataSource data;
  std::vector<std::string> contexts;
  double timeoutSeconds = -1;
  addGlobalOptions(app, options, timeoutSeconds);
  const std::map<const CLI::App *, Command> commands = addCommands(app, options, data, contexts);
  try {
    app.parse(argc, argv);
    options.data = resolveData(data);
  } catch (const CLI::ParseError &error) {
    status = app.exit(error) == 0 ? ExitStatus::kSuccess : ExitStatus::kUsage;
    return std::nullopt;
  }
  options.command = commands.at(app.get_subcommands().front());
  for (const std::string &pair : contexts) {
    options.contexts.push_back(*parseContextPair(pair));
  }
  if (timeoutSeconds >= 0) {
    options.timeout = std::chrono::milliseconds(std::llround(timeoutSeconds * 1000));
  }
  return options;
}

}  // namespace oxactl
