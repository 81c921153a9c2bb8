#include "Failure.h"

#include <oxa.h>

#include "ErrorNames.h"

namespace oxactl {

OperationFailure::OperationFailure(const std::string &operation, int result)
    : OperationFailure(ExitStatus::kOperation, operation, result,
                       operation + ": " + errorName(result)) {}

void check(const char *operation, int result) {
  if (result != OXA_ERROR_NONE) {
    throw OperationFailure(operation, result);
  }
}

}  // namespace oxactl
