#ifndef OXA_SRC_EXCEPTION_H_
#define OXA_SRC_EXCEPTION_H_

#include <dlog.h>

#include <cstring>
#include <exception>
#include <string>

#include "oxa.h"

namespace Oxa::Capi {

class Exception : public std::exception {
 public:
  // The message reads "<file base name>:<line>: <error constant name>".
  Exception(oxa_error_e error, const char *file, int line, const char *errorName)
      : error(error), message(baseName(file) + ":" + std::to_string(line) + ": " + errorName) {}
  const char *what() const noexcept override { return message.c_str(); }

  oxa_error_e error;
  std::string message;

 private:
  static std::string baseName(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
  }
};

inline std::string GetErrorName(int error) {
  switch (error) {
    case OXA_ERROR_NONE:
      return "ErrorNone";
    case OXA_ERROR_IO_ERROR:
      return "IoError";
    case OXA_ERROR_OUT_OF_MEMORY:
      return "OutOfMemory";
    case OXA_ERROR_PERMISSION_DENIED:
      return "PermissionDenied";
    case OXA_ERROR_INVALID_PARAMETER:
      return "InvalidParameter";
    case OXA_ERROR_INVALID_OPERATION:
      return "InvalidOperation";
    case OXA_ERROR_NO_DATA:
      return "NoData";
    case OXA_ERROR_NOT_SUPPORTED:
      return "NotSupported";
    case OXA_ERROR_INTERNAL_ERROR:
      return "InternalError";
    case OXA_ERROR_LOWER_VERSION:
      return "LowerVersion";
    case OXA_ERROR_NO_DEVICE:
      return "NoDevice";
    default:
      return "UnknownError";
  }
}

// Service types 1, 3 and 6 are the only ones the agent knows.
inline int checkServiceType(int type) {
  if (type == OXA_SERVICE_TYPE_1 || type == OXA_SERVICE_TYPE_3 || type == OXA_SERVICE_TYPE_6) {
    return type;
  }
  throw Exception(OXA_ERROR_INVALID_PARAMETER, __FILE__, __LINE__, "OXA_ERROR_INVALID_PARAMETER");
}

// Writes "<file>: <function>(<line>) > <message>" to the platform log under the tag "OXA_API".
// For call sites whose function and line are only known at run time; OXA_LOG is cheaper.
void writeLog(log_priority level, const char *file, const char *function, int line,
              const char *format, ...) __attribute__((format(printf, 5, 6)));

// Writes `prefix` (of `prefixLength` bytes) followed by the printf of `format` and `args`.
void writeLogLine(log_priority level, const char *prefix, size_t prefixLength, const char *format,
                  va_list args) __attribute__((format(printf, 4, 0)));

// One call site of OXA_LOG with a formatted message: its line prefix
// "<file>: <function>(<line>) > " is built once, when the site is first reached.
class LogSite {
 public:
  LogSite(const char *file, const char *function, int line);
  void write(log_priority level, const char *format, ...) const
      __attribute__((format(printf, 3, 4)));

 private:
  // Never freed: a site may still log while other objects are destroyed at exit.
  const char *prefix;
  size_t prefixLength;
};

// One call site of OXA_LOG with a constant message: the whole line is built once.
class ConstantLogLine {
 public:
  ConstantLogLine(const char *file, const char *function, int line, const char *message);
  void write(log_priority level) const { dlog_print(level, "OXA_API", "%s", text); }

 private:
  const char *text;  // never freed, as LogSite::prefix
};

}  // namespace Oxa::Capi

// OXA_LOG(level, message) or OXA_LOG(level, format, arguments...): the line of the call site.
#define OXA_LOG(level, ...)                                                                 \
  OXA_LOG_SELECT(__VA_ARGS__, OXA_LOG_FORMATTED, OXA_LOG_FORMATTED, OXA_LOG_FORMATTED,      \
                 OXA_LOG_FORMATTED, OXA_LOG_FORMATTED, OXA_LOG_FORMATTED, OXA_LOG_CONSTANT, \
                 unused)                                                                    \
  (level, __VA_ARGS__)
#define OXA_LOG_SELECT(_1, _2, _3, _4, _5, _6, _7, name, ...) name
#define OXA_LOG_CONSTANT(level, message)                                                         \
  do {                                                                                           \
    static const ::Oxa::Capi::ConstantLogLine oxaLogLine(__FILE__, __func__, __LINE__, message); \
    oxaLogLine.write(level);                                                                     \
  } while (false)
#define OXA_LOG_FORMATTED(level, ...)                                           \
  do {                                                                          \
    static const ::Oxa::Capi::LogSite oxaLogSite(__FILE__, __func__, __LINE__); \
    oxaLogSite.write(level, __VA_ARGS__);                                       \
  } while (false)
#define OXA_LOGD(...) OXA_LOG(DLOG_DEBUG, __VA_ARGS__)
#define OXA_LOGI(...) OXA_LOG(DLOG_INFO, __VA_ARGS__)
#define OXA_LOGW(...) OXA_LOG(DLOG_WARN, __VA_ARGS__)
#define OXA_LOGE(...) OXA_LOG(DLOG_ERROR, __VA_ARGS__)

#endif  // OXA_SRC_EXCEPTION_H_
