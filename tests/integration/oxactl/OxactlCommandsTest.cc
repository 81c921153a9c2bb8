// oxactl's one-shot commands against the simulator's built-in world: exact output and status.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "OxactlTest.h"

namespace {

using oxa::test::OxactlResult;

constexpr char kDevicesText[] =
    "A0:00:00:00:00:01   1  Living Room TV   0201061aff75\n"
    "A0:00:00:00:00:02   2  Kitchen Speaker  020106\n"
    "A0:00:00:00:00:03   5  Echo Peer        6563686f\n";

constexpr char kDevicesJson[] =
    R"({"address":"A0:00:00:00:00:01","type":1,"name":"Living Room TV","adv_data":"0201061aff75"})"
    "\n"
    R"({"address":"A0:00:00:00:00:02","type":2,"name":"Kitchen Speaker","adv_data":"020106"})"
    "\n"
    R"({"address":"A0:00:00:00:00:03","type":5,"name":"Echo Peer","adv_data":"6563686f"})"
    "\n";

class OxactlCommandTest : public oxa::test::OxactlTest {
 protected:
  void SetUp() override { startSim(); }
};

TEST_F(OxactlCommandTest, DevicesListsTheBuiltInDevicesAfterTheTimeout) {
  const OxactlResult result = run({"devices", "--timeout", "1"});
  EXPECT_EQ(result.output, kDevicesText);
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlCommandTest, DevicesAsJsonIsOneObjectPerDevice) {
  const OxactlResult result = run({"--json", "devices", "--timeout", "1"});
  EXPECT_EQ(result.output, kDevicesJson);
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlCommandTest, MeIsTheApplicationsOwnDevice) {
  const OxactlResult text = run({"me"});
  EXPECT_EQ(text.output, "02:00:00:00:00:01   1  org.example.oxactl  -\n");
  EXPECT_EQ(text.status, 0);

  const OxactlResult json = run({"me", "--json"});
  EXPECT_EQ(json.output,
            R"({"address":"02:00:00:00:00:02","type":1,"name":"org.example.oxactl","adv_data":""})"
            "\n");
  EXPECT_EQ(json.status, 0);
}

TEST_F(OxactlCommandTest, InfoReadsTheAskedContexts) {
  const OxactlResult text =
      run({"info", "A0:00:00:00:00:01", "--context", "1:1", "--context", "1:2"});
  EXPECT_EQ(text.output,
            "A0:00:00:00:00:01   1  Living Room TV  0201061aff75  1:1=6368616e6e656c2037  "
            "1:2=0107\n");
  EXPECT_EQ(text.status, 0);

  const OxactlResult json =
      run({"--json", "info", "A0:00:00:00:00:01", "--service", "3", "--context", "1:2"});
  EXPECT_EQ(json.output,
            R"({"address":"A0:00:00:00:00:01","type":1,"name":"Living Room TV",)"
            R"("adv_data":"0201061aff75","context":[{"service":1,"context":2,"data":"0107"}]})"
            "\n");
  EXPECT_EQ(json.status, 0);
}

TEST_F(OxactlCommandTest, InfoPrintsAContextThatCannotBeReadWithItsErrorAndExits4) {
  const OxactlResult text =
      run({"info", "A0:00:00:00:00:03", "--context", "1:2", "--context", "6:3"});
  EXPECT_EQ(text.output,
            "A0:00:00:00:00:03   5  Echo Peer  6563686f  1:2=OXA_ERROR_NO_DATA  "
            "6:3=OXA_ERROR_INVALID_OPERATION\n");
  EXPECT_EQ(text.status, 4);

  const OxactlResult json = run({"--json", "info", "A0:00:00:00:00:03", "--context", "1:2"});
  EXPECT_EQ(json.output,
            R"({"address":"A0:00:00:00:00:03","type":5,"name":"Echo Peer","adv_data":"6563686f",)"
            R"("context":[{"service":1,"context":2,"result":-61,"error":"OXA_ERROR_NO_DATA"}]})"
            "\n");
  EXPECT_EQ(json.status, 4);
}

TEST_F(OxactlCommandTest, InfoOnAnAbsentDeviceExits4WithTheErrorName) {
  const OxactlResult text = run({"info", "A0:00:00:00:00:09"});
  EXPECT_EQ(text.output, "oxactl: oxa_get_my_device: OXA_ERROR_NO_DEVICE\n");
  EXPECT_EQ(text.status, 4);

  const OxactlResult json = run({"info", "A0:00:00:00:00:09", "--json"});
  EXPECT_EQ(
      json.output,
      "oxactl: oxa_get_my_device: OXA_ERROR_NO_DEVICE\n"
      R"({"operation":"oxa_get_my_device","result":-1073741827,"error":"OXA_ERROR_NO_DEVICE"})"
      "\n");
  EXPECT_EQ(json.status, 4);
}

TEST_F(OxactlCommandTest, MessageToTheEchoPeerIsSent) {
  const OxactlResult text = run({"message", "A0:00:00:00:00:03", "--text", "hi"});
  EXPECT_EQ(text.output, "sent A0:00:00:00:00:03: OXA_ERROR_NONE\n");
  EXPECT_EQ(text.status, 0);

  const OxactlResult json = run({"--json", "message", "A0:00:00:00:00:03", "--hex", "6869"});
  EXPECT_EQ(json.output,
            R"({"event":"sent","address":"A0:00:00:00:00:03","result":0,"error":"OXA_ERROR_NONE"})"
            "\n");
  EXPECT_EQ(json.status, 0);
}

TEST_F(OxactlCommandTest, SendToTheEchoPeerIsSent) {
  const OxactlResult result =
      run({"send", "A0:00:00:00:00:03", "--type", "1", "--id", "7", "--hex", "010203"});
  EXPECT_EQ(result.output, "sent A0:00:00:00:00:03: OXA_ERROR_NONE\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlCommandTest, SendToAnAbsentDevicePrintsNoDeviceAndExits4) {
  const OxactlResult text =
      run({"send", "A0:00:00:00:00:09", "--type", "1", "--id", "1", "--hex", "00"});
  EXPECT_EQ(text.output, "sent A0:00:00:00:00:09: OXA_ERROR_NO_DEVICE\n");
  EXPECT_EQ(text.status, 4);

  const OxactlResult json =
      run({"--json", "send", "A0:00:00:00:00:09", "--type", "2", "--id", "1", "--text", "x"});
  EXPECT_EQ(json.output, R"({"event":"sent","address":"A0:00:00:00:00:09","result":-1073741827,)"
                         R"("error":"OXA_ERROR_NO_DEVICE"})"
                         "\n");
  EXPECT_EQ(json.status, 4);
}

TEST_F(OxactlCommandTest, PublishPrintsTheOutcome) {
  const OxactlResult text = run({"publish", "2", "--text", "on"});
  EXPECT_EQ(text.output, "published context 2: OXA_ERROR_NONE\n");
  EXPECT_EQ(text.status, 0);

  const OxactlResult json = run({"publish", "6", "--service", "6", "--hex", "ff", "--json"});
  EXPECT_EQ(json.output, R"({"context":6,"result":0,"error":"OXA_ERROR_NONE"})"
                         "\n");
  EXPECT_EQ(json.status, 0);
}

TEST_F(OxactlCommandTest, DataComesFromAFile) {
  const std::string path = runtimeDir() + "/data";
  std::ofstream(path) << "hi";
  const OxactlResult result = run({"message", "A0:00:00:00:00:03", "--file", path});
  EXPECT_EQ(result.output, "sent A0:00:00:00:00:03: OXA_ERROR_NONE\n");
  EXPECT_EQ(result.status, 0);
}

// The agent answers errors of its own; oxactl passes them on by name.
class OxactlFailingAgentTest : public oxa::test::OxactlTest {};

TEST_F(OxactlFailingAgentTest, AnOutcomeThatNeverComesExits5AtTheTimeout) {
  startSim({"--fail", "SendCommand=0"});
  const OxactlResult result = run(
      {"--timeout", "0.3", "send", "A0:00:00:00:00:03", "--type", "1", "--id", "1", "--hex", "00"});
  EXPECT_EQ(result.output, "oxactl: no outcome of the send to A0:00:00:00:00:03 within 300 ms\n");
  EXPECT_EQ(result.status, 5);
}

TEST_F(OxactlFailingAgentTest, ARefusedRequestExits4WithItsName) {
  startSim({"--fail", "StartDiscovery=-13"});
  const OxactlResult result = run({"devices", "--json"});
  EXPECT_EQ(
      result.output,
      "oxactl: oxa_start_discovery: OXA_ERROR_PERMISSION_DENIED\n"
      R"({"operation":"oxa_start_discovery","result":-13,"error":"OXA_ERROR_PERMISSION_DENIED"})"
      "\n");
  EXPECT_EQ(result.status, 4);
}

TEST_F(OxactlFailingAgentTest, ARefusedRegistrationExits4) {
  startSim({"--fail", "RegisterService=-1073741822"});
  const OxactlResult result = run({"me"});
  EXPECT_EQ(result.output, "oxactl: oxa_service_register: OXA_ERROR_NOT_SUPPORTED\n");
  EXPECT_EQ(result.status, 4);
}

}  // namespace
