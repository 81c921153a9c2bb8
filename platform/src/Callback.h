// A registered C callback and its user data.
#pragma once

#include "Exported.h"

namespace platform {

template <typename Function>
struct Callback {
  Function function = nullptr;
  void *userData = nullptr;
};

// Registers `function` with `userData` in the callback slot `slot` of `owner` (a proxy or stub).
template <typename Owner, typename Function>
int registerCallback(Owner *owner, Callback<Function> Owner::*slot, Function function,
                     void *userData) {
  if (owner == nullptr || function == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  owner->*slot = Callback<Function>{function, userData};
  return RPC_PORT_ERROR_NONE;
}

}  // namespace platform
