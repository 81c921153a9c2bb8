#include "ErrorNames.h"

#include <oxa.h>

#include <array>
#include <utility>

namespace oxactl {

namespace {

// The library exports functions only, so the names of its result codes live here.
constexpr std::array<std::pair<int, const char *>, 11> kNames{{
    {OXA_ERROR_NONE, "OXA_ERROR_NONE"},
    {OXA_ERROR_IO_ERROR, "OXA_ERROR_IO_ERROR"},
    {OXA_ERROR_OUT_OF_MEMORY, "OXA_ERROR_OUT_OF_MEMORY"},
    {OXA_ERROR_PERMISSION_DENIED, "OXA_ERROR_PERMISSION_DENIED"},
    {OXA_ERROR_INVALID_PARAMETER, "OXA_ERROR_INVALID_PARAMETER"},
    {OXA_ERROR_INVALID_OPERATION, "OXA_ERROR_INVALID_OPERATION"},
    {OXA_ERROR_NO_DATA, "OXA_ERROR_NO_DATA"},
    {OXA_ERROR_NOT_SUPPORTED, "OXA_ERROR_NOT_SUPPORTED"},
    {OXA_ERROR_INTERNAL_ERROR, "OXA_ERROR_INTERNAL_ERROR"},
    {OXA_ERROR_LOWER_VERSION, "OXA_ERROR_LOWER_VERSION"},
    {OXA_ERROR_NO_DEVICE, "OXA_ERROR_NO_DEVICE"},
}};

}  // namespace

std::string errorName(int result) {
  for (const auto &[value, name] : kNames) {
    if (value == result) {
      return name;
    }
  }
  return "UNKNOWN_ERROR(" + std::to_string(result) + ")";
}

}  // namespace oxactl
