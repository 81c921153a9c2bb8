// oxactl without a working agent, and with a bad command line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OxactlTest.h"

namespace {

using oxa::test::OxactlResult;

class OxactlUsageTest : public oxa::test::OxactlTest {};

TEST_F(OxactlUsageTest, NoAgentRunningExits3WithWhatToCheck) {
  const std::string check = "oxactl: check: is the agent running? is RPC_PORT_RUNTIME_DIR (" +
                            runtimeDir() +
                            ") the directory it listens in? does this program hold the privilege "
                            "the agent requires (RPC_PORT_PRIVILEGES)?\n";
  const OxactlResult text = run({"devices"});
  EXPECT_EQ(text.output, "oxactl: cannot connect to the agent: OXA_ERROR_INTERNAL_ERROR\n" + check);
  EXPECT_EQ(text.status, 3);

  const OxactlResult json = run({"--json", "me"});
  EXPECT_EQ(
      json.output,
      "oxactl: cannot connect to the agent: OXA_ERROR_INTERNAL_ERROR\n" + check +
          R"({"operation":"oxa_initialize","result":-1073741825,"error":"OXA_ERROR_INTERNAL_ERROR"})"
          "\n");
  EXPECT_EQ(json.status, 3);
}

TEST_F(OxactlUsageTest, ARejectedClientExits3) {
  startSim({"--require-privilege", "http://oxa.org/privilege/agent"});
  const OxactlResult result = run({"me"});
  EXPECT_EQ(result.output,
            "oxactl: the agent rejected this client: OXA_ERROR_PERMISSION_DENIED\n"
            "oxactl: check: does this program hold the privilege the agent requires "
            "(RPC_PORT_PRIVILEGES)?\n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(OxactlUsageTest, BadCommandLinesExit2WithCli11sMessage) {
  const std::vector<std::vector<std::string>> badLines = {
      {},
      {"frobnicate"},
      {"--service", "2", "me"},
      {"--timeout", "-1", "devices"},
      {"send", "A0:00:00:00:00:03", "--type", "1", "--id", "1"},
      {"send", "A0:00:00:00:00:03", "--type", "4", "--id", "1", "--hex", "00"},
      {"send", "A0:00:00:00:00:03", "--id", "1", "--hex", "00"},
      {"message", "A0:00:00:00:00:3", "--text", "hi"},
      {"message", "A0:00:00:00:00:03", "--text", "hi", "--hex", "00"},
      {"message", "A0:00:00:00:00:03", "--hex", "0"},
      {"message", "A0:00:00:00:00:03", "--hex", "zz"},
      {"message", "A0:00:00:00:00:03", "--file", "/nonexistent/oxactl"},
      {"publish", "1", "--text", "x"},
      {"info", "A0:00:00:00:00:01", "--context", "1"},
      {"info"},
  };
  for (const auto &line : badLines) {
    const OxactlResult result = run(line);
    EXPECT_EQ(result.status, 2) << ::testing::PrintToString(line) << "\n" << result.output;
    EXPECT_NE(result.output.find("Run with --help for more information."), std::string::npos)
        << ::testing::PrintToString(line) << "\n"
        << result.output;
  }
}

TEST_F(OxactlUsageTest, HelpSaysWhatEachCommandDoes) {
  const OxactlResult help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char *line :
       {"oxactl: the OXA multi-device service from the shell.",
        "  me                          Print this application's own device",
        "  devices                     Start discovery, wait --timeout (default 2 s)",
        "  monitor                     Print every event", "Exit status: 0 success, 2 bad usage"}) {
    EXPECT_NE(help.output.find(line), std::string::npos) << line << "\n" << help.output;
  }

  const std::vector<std::pair<std::string, std::string>> commands = {
      {"me", "Print this application's own device: address, type, name"},
      {"devices", "then list the devices the agent found"},
      {"scan", "Print each device found, lost or whose context changed"},
      {"info", "Print a device's address, type, name, advertised data"},
      {"publish", "Publish this application's own context data of one type"},
      {"send", "Send a command to a device"},
      {"message", "Send a simple message to a device"},
      {"monitor", "Print every event (service state, found, lost, context changed"},
  };
  for (const auto &[command, says] : commands) {
    const OxactlResult result = run({command, "--help"});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_NE(result.output.find(says), std::string::npos) << command << "\n" << result.output;
  }
}

}  // namespace
