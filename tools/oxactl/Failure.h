#ifndef OXA_TOOLS_OXACTL_FAILURE_H_
#define OXA_TOOLS_OXACTL_FAILURE_H_

#include <stdexcept>
#include <string>
#include <utility>

namespace oxactl {

// The exit statuses of oxactl.
enum class ExitStatus {
  kSuccess = 0,
  kUsage = 2,       // a bad command line
  kConnection = 3,  // the connection to the agent failed or was rejected
  kOperation = 4,   // an operation returned or reported an error
  kTimeout = 5,     // nothing came before the timeout
};

// Ends a command with `status`; `what()` is the message for standard error.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string &message)
      : std::runtime_error(message), status_(status) {}

  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// A library function that returned an error: `operation` is its name, `result` its code.
class OperationFailure : public Failure {
 public:
  OperationFailure(ExitStatus status, std::string operation, int result, const std::string &message)
      : Failure(status, message), operation_(std::move(operation)), result_(result) {}
  OperationFailure(const std::string &operation, int result);

  const std::string &operation() const { return operation_; }
  int result() const { return result_; }

 private:
  std::string operation_;
  int result_;
};

// Throws OperationFailure when `result` is not OXA_ERROR_NONE.
void check(const char *operation, int result);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_FAILURE_H_
