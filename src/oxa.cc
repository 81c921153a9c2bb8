#include <cstdarg>
#include <cstdio>
#include <string>

#include "AgentProxyHandler.h"
#include "Exception.h"

namespace Oxa {
namespace Capi {

namespace {

// printf into `buffer`, or into `overflow` when the text is longer than the buffer.
const char *formatInto(char *buffer, size_t size, std::string &overflow, const char *format,
                       va_list args) {
  va_list retry;
  va_copy(retry, args);
  const int length = std::vsnprintf(buffer, size, format, args);
  const char *text = buffer;
  if (length < 0) {
    text = "";
  } else if (static_cast<size_t>(length) >= size) {
    overflow.resize(static_cast<size_t>(length) + 1);
    std::vsnprintf(overflow.data(), overflow.size(), format, retry);
    text = overflow.c_str();
  }
  va_end(retry);
  return text;
}

const char *formatInto(char *buffer, size_t size, std::string &overflow, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
const char *formatInto(char *buffer, size_t size, std::string &overflow, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const char *text = formatInto(buffer, size, overflow, format, args);
  va_end(args);
  return text;
}

}  // namespace

void writeLog(log_priority level, const char *file, const char *function, int line,
              const char *format, ...) {
  char messageBuffer[256];
  std::string longMessage;
  va_list args;
  va_start(args, format);
  const char *message = formatInto(messageBuffer, sizeof(messageBuffer), longMessage, format, args);
  va_end(args);

  char lineBuffer[512];
  std::string longLine;
  const char *text = formatInto(lineBuffer, sizeof(lineBuffer), longLine, "%s: %s(%d) > %s", file,
                                function, line, message);
  dlog_print(level, "OXA_API", "%s", text);
}

}  // namespace Capi
}  // namespace Oxa

// The library is built with hidden visibility; only the exported functions carry this.
#define OXA_EXPORT __attribute__((visibility("default")))

extern "C" {

OXA_EXPORT int oxa_initialize(oxa_initialized_cb callback, void *user_data) {
  OXA_LOGD("+");
  auto &handler = Oxa::Capi::AgentProxyHandler::GetInstance();
  return handler.Connect([callback, user_data](oxa_error_e result) {
    if (callback != nullptr) {
      callback(result, user_data);
    }
  });
}

OXA_EXPORT int oxa_deinitialize(void) {
  OXA_LOGD("+");
  return Oxa::Capi::AgentProxyHandler::GetInstance().Disconnect();
}

}  // extern "C"
