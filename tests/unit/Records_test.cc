// Device, Command and SimpleMessage records, the device-type normalisation and service creation.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Exception.h"
#include "Service.h"

namespace {

using Oxa::Capi::Command;
using Oxa::Capi::Device;
using Oxa::Capi::Service;
using Oxa::Capi::SimpleMessage;
using Oxa::Capi::toDeviceType;

constexpr const char *kAddress = "00:11:22:33:44:55";

TEST(Device, KeepsAddressTypeAndName) {
  const Device device(kAddress, OXA_DEVICE_TYPE_3, "kitchen");
  EXPECT_EQ(device.getAddress(), kAddress);
  EXPECT_EQ(device.getType(), 3);
  EXPECT_EQ(device.getName(), "kitchen");
}

TEST(Device, WithoutTypeIsUnknown) {
  const Device device(kAddress, "hall");
  EXPECT_EQ(device.getType(), OXA_DEVICE_TYPE_UNKNOWN);
  EXPECT_EQ(device.getType(), 99);
  EXPECT_EQ(device.getName(), "hall");
  EXPECT_EQ(device.getAddress(), kAddress);
}

TEST(Device, CopyOutlivesItsSource) {
  auto source = std::make_unique<Device>(kAddress, OXA_DEVICE_TYPE_2, "desk");
  auto clone = std::make_unique<Device>(source->getAddress(), source->getType(), source->getName());
  source.reset();
  EXPECT_EQ(clone->getAddress(), kAddress);
  EXPECT_EQ(clone->getType(), 2);
  EXPECT_EQ(clone->getName(), "desk");

  Device original(kAddress, OXA_DEVICE_TYPE_1, "tv");
  {
    const Device copy = original;
    EXPECT_EQ(copy.getName(), "tv");
  }
  EXPECT_EQ(original.getName(), "tv");
}

TEST(ToDeviceType, KeepsOneToFive) {
  for (int type = 1; type <= 5; ++type) {
    EXPECT_EQ(toDeviceType(type), type);
  }
}

TEST(ToDeviceType, MakesEverythingElseUnknown) {
  for (int type : {0, 6, -1, 98, 99, 100}) {
    EXPECT_EQ(toDeviceType(type), OXA_DEVICE_TYPE_UNKNOWN) << type;
  }
}

TEST(Command, IsBuiltTypeFirst) {
  const Command command(kAddress, OXA_COMMAND_TYPE_2, 41, {1, 2, 3});
  EXPECT_EQ(command.getAddress(), kAddress);
  EXPECT_EQ(command.getType(), 2);
  EXPECT_EQ(command.getId(), 41);
  EXPECT_EQ(command.getPayload(), (std::vector<unsigned char>{1, 2, 3}));
}

TEST(Command, EmptyPayloadHoldsNothing) {
  const Command command(kAddress, OXA_COMMAND_TYPE_1, 0, {});
  EXPECT_TRUE(command.getPayload().empty());
  EXPECT_EQ(command.getPayload().size(), 0U);
}

TEST(SimpleMessage, KeepsAddressAndData) {
  const SimpleMessage message(kAddress, {'h', 'i'});
  EXPECT_EQ(message.getAddress(), kAddress);
  EXPECT_EQ(message.getData(), (std::vector<unsigned char>{'h', 'i'}));
}

TEST(Service, AcceptsTypesOneThreeAndSix) {
  for (int type : {1, 3, 6}) {
    const Service service(type);
    EXPECT_EQ(service.getType(), type);
    EXPECT_EQ(service.getRequestedType(), type);
    EXPECT_EQ(service.getAppId(), 0);
  }
}

TEST(Service, RefusesTypeTwo) {
  try {
    const Service service(2);
    ADD_FAILURE() << "a service of type 2 was made";
  } catch (const Oxa::Capi::Exception &e) {
    EXPECT_EQ(e.error, OXA_ERROR_INVALID_PARAMETER);
  }
}

}  // namespace
