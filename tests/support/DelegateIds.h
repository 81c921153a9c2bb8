// The delegate ids the library gives its event kinds, as they travel in every event parcel; the
// tests that speak the agent's side of the wire number events with these.
#pragma once

namespace oxa::test::delegate_ids {

enum DelegateId : int {
  kServiceRegistered = 1,
  kServiceStateChanged = 2,
  kCommandSent = 3,
  kCommandReceived = 4,
  kDeviceFound = 5,
  kDeviceLost = 6,
  kContextChanged = 7,
};

}  // namespace oxa::test::delegate_ids
