// A connected event reaching a handler that has never built a proxy. Only a process whose handler
// never connected can show it, so this program holds this one test.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "HandlerTest.h"

namespace {

using handlertest::apiLog;
using handlertest::HandlerTest;
using handlertest::kHandlerSource;
using handlertest::sourceLine;
using ::testing::ElementsAre;

class FirstEventTest : public HandlerTest {};

TEST_F(FirstEventTest, ConnectedWithoutProxyReportsAnInternalErrorToAnEmptyHolder) {
  // The completion function is only stored together with a proxy, so here it is empty too, and
  // calling it throws out of the handler.
  EXPECT_THROW(handler.OnConnected(), std::bad_function_call);
  EXPECT_THAT(logs(),
              ElementsAre(apiLog(DLOG_INFO, kHandlerSource, "OnConnected",
                                 sourceLine(kHandlerSource, "\"App is connected to OXA Agent\""),
                                 "App is connected to OXA Agent"),
                          apiLog(DLOG_ERROR, kHandlerSource, "OnConnected",
                                 sourceLine(kHandlerSource, "\"No AgentProxyHandler\""),
                                 "No AgentProxyHandler")));
  EXPECT_EQ(handler.StartDiscovery(1), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(fake::SentParcels(), ::testing::IsEmpty());
}

}  // namespace
