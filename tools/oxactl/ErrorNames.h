#ifndef OXA_TOOLS_OXACTL_ERROR_NAMES_H_
#define OXA_TOOLS_OXACTL_ERROR_NAMES_H_

#include <string>

namespace oxactl {

// The name of the oxa_error_e constant with value `result` ("OXA_ERROR_NO_DEVICE"), or
// "UNKNOWN_ERROR(<value>)" for a value the header does not define.
std::string errorName(int result);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_ERROR_NAMES_H_
