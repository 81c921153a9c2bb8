#include "RawStub.h"

#include "MainLoop.h"
#include "PlatformHarness.h"

namespace oxa::test {

RawStub::RawStub(GMainContext *context)
    : context_(context), listener_(portPath(kAppId, kPortName)) {}

bool RawStub::acceptProxy() {
  main = acceptOne();
  if (!main.valid() || !main.readFrame(kDefaultWait)) {
    return false;
  }
  main.writeAll(frame(ackBody(0, "raw@1")));
  callback = acceptOne();
  return callback.valid() && callback.readFrame(kDefaultWait) &&
         callback.writeAll(frame(ackBody(0, "raw@1")));
}

RawSocket RawStub::acceptOne() {
  RawSocket accepted;
  runUntil(context_, [&] {
    accepted = listener_.tryAccept();
    return accepted.valid();
  });
  return accepted;
}

}  // namespace oxa::test
