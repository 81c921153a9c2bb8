// A registered C callback and its user data.
#pragma once

namespace platform {

template <typename Function>
struct Callback {
  Function function = nullptr;
  void *userData = nullptr;
};

}  // namespace platform
