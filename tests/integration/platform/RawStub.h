// A stub played by hand on kPortName of kAppId: accepts a proxy's two connections and
// acknowledges them, then leaves both raw socket ends to the test.
#pragma once

#include <glib.h>

#include "RawPeer.h"

namespace oxa::test {

class RawStub {
 public:
  // Listens at once; `context` is run while waiting for connections.
  explicit RawStub(GMainContext *context);

  // Runs the handshake of a proxy that has just called connect() (or is inside connect_sync).
  bool acceptProxy();
  // The next connection, waiting for it on the context; invalid when none came in time.
  RawSocket acceptOne();

  RawSocket main;
  RawSocket callback;

 private:
  GMainContext *context_;
  RawListener listener_;
};

}  // namespace oxa::test
