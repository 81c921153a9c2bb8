// What the standard library says when a std::string is built from a null pointer; the library
// rejects a null string from the wire with that same exception.
#pragma once

#include <stdexcept>
#include <string>

namespace oxa::test {

inline std::string nullStringError() {
  const char *volatile none = nullptr;
  try {
    const std::string built(none);
  } catch (const std::logic_error &error) {
    return error.what();
  }
  return "no exception";
}

}  // namespace oxa::test
