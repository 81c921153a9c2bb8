// A program of its own, so that nothing else has created a delegate before this test runs.

#include <gtest/gtest.h>

#include "AgentProxy.h"

namespace {

using rpc_port::AgentProxy::proxy::OxaAgentInterface;

TEST(AgentProxyFirstDelegateTest, FirstDelegateOfTheProcessIsNumberedZeroThenOneAndSoOn) {
  const OxaAgentInterface::OnCommandReceivedEvent first(4, false);
  const OxaAgentInterface::OnDeviceFoundEvent second(5, false);
  const OxaAgentInterface::OnServiceRegisteredEvent third(1, true);
  EXPECT_EQ(first.GetSeqId(), 0);
  EXPECT_EQ(second.GetSeqId(), 1);
  EXPECT_EQ(third.GetSeqId(), 2);
  EXPECT_EQ(first.GetTag(), "4::0");
}

}  // namespace
