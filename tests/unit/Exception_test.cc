// Error names, the library's exception and the service-type check.

#include "Exception.h"

#include <gtest/gtest.h>

#include <string>

#include "HandlerTest.h"

namespace {

using Oxa::Capi::checkServiceType;
using Oxa::Capi::Exception;
using Oxa::Capi::GetErrorName;

TEST(GetErrorName, NamesEveryPublicCode) {
  EXPECT_EQ(GetErrorName(OXA_ERROR_NONE), "ErrorNone");
  EXPECT_EQ(GetErrorName(OXA_ERROR_IO_ERROR), "IoError");
  EXPECT_EQ(GetErrorName(OXA_ERROR_OUT_OF_MEMORY), "OutOfMemory");
  EXPECT_EQ(GetErrorName(OXA_ERROR_PERMISSION_DENIED), "PermissionDenied");
  EXPECT_EQ(GetErrorName(OXA_ERROR_INVALID_PARAMETER), "InvalidParameter");
  EXPECT_EQ(GetErrorName(OXA_ERROR_INVALID_OPERATION), "InvalidOperation");
  EXPECT_EQ(GetErrorName(-61), "NoData");
  EXPECT_EQ(GetErrorName(OXA_ERROR_NOT_SUPPORTED), "NotSupported");
  EXPECT_EQ(GetErrorName(OXA_ERROR_INTERNAL_ERROR), "InternalError");
  EXPECT_EQ(GetErrorName(OXA_ERROR_LOWER_VERSION), "LowerVersion");
  EXPECT_EQ(GetErrorName(OXA_ERROR_NO_DEVICE), "NoDevice");
}

TEST(GetErrorName, CallsEveryOtherValueUnknown) {
  EXPECT_EQ(GetErrorName(-1073741824), "UnknownError");
  EXPECT_EQ(GetErrorName(-1073741823), "UnknownError");
  EXPECT_EQ(GetErrorName(1), "UnknownError");
  EXPECT_EQ(GetErrorName(-1), "UnknownError");
  EXPECT_EQ(GetErrorName(-2), "UnknownError");
}

TEST(CheckServiceType, PassesTheThreeKnownTypes) {
  EXPECT_EQ(checkServiceType(OXA_SERVICE_TYPE_1), 1);
  EXPECT_EQ(checkServiceType(OXA_SERVICE_TYPE_3), 3);
  EXPECT_EQ(checkServiceType(OXA_SERVICE_TYPE_6), 6);
}

TEST(CheckServiceType, ThrowsInvalidParameterNamingTheHeaderAndItsLine) {
  const int line = handlertest::sourceLine("src/Exception.h", "throw Exception(OXA_ERROR_INVALID");
  for (int type : {0, 2, 4, 5, 7, -1}) {
    try {
      checkServiceType(type);
      ADD_FAILURE() << "type " << type << " passed";
    } catch (const Exception &e) {
      EXPECT_EQ(e.error, OXA_ERROR_INVALID_PARAMETER);
      EXPECT_STREQ(
          e.what(),
          ("Exception.h:" + std::to_string(line) + ": OXA_ERROR_INVALID_PARAMETER").c_str());
    }
  }
}

TEST(ExceptionMessage, KeepsAFileNameWithoutDirectory) {
  const Exception error(OXA_ERROR_NO_DATA, "plain.cc", 7, "OXA_ERROR_NO_DATA");
  EXPECT_STREQ(error.what(), "plain.cc:7: OXA_ERROR_NO_DATA");
  EXPECT_EQ(error.error, OXA_ERROR_NO_DATA);
}

TEST(ExceptionMessage, IsAStandardException) {
  try {
    checkServiceType(2);
  } catch (const std::exception &e) {
    EXPECT_NE(std::string(e.what()).find("OXA_ERROR_INVALID_PARAMETER"), std::string::npos);
    return;
  }
  ADD_FAILURE() << "nothing thrown";
}

}  // namespace
