// The library's own log lines: "<file>: <function>(<line>) > <message>", tag "OXA_API".
//
// Most lines are debug lines that the platform then filters out, so what every call costs is
// kept small: the prefix of a call site is built once, a constant line entirely once, and a
// formatted message is printed straight behind its prefix in one pass.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "Exception.h"

namespace Oxa::Capi {

namespace {

constexpr size_t kStackLine = 512;

// printf of `format` into a new block that is never freed (see LogSite::prefix).
const char *printPermanent(const char *format, ...) __attribute__((format(printf, 1, 2)));
const char *printPermanent(const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *text = nullptr;
  if (vasprintf(&text, format, args) < 0) {
    text = nullptr;
  }
  va_end(args);
  return text != nullptr ? text : "";
}

// The line of a constant message, printed once as the format it is (so "%%" reads "%").
const char *printConstantLine(const char *file, const char *function, int line,
                              const char *message) {
  std::string text = std::string(file) + ": " + function + "(" + std::to_string(line) + ") > ";
  const int length = std::snprintf(nullptr, 0, message);
  if (length > 0) {
    const size_t prefixLength = text.size();
    text.resize(prefixLength + static_cast<size_t>(length) + 1);
    std::snprintf(text.data() + prefixLength, static_cast<size_t>(length) + 1, message);
    text.pop_back();
  }
  return printPermanent("%s", text.c_str());
}

// Writes `prefix` followed by the printf of `format`, in one pass when it fits on the stack. A
// message that cannot be printed is left empty.
void writeLine(log_priority level, const char *prefix, size_t prefixLength, const char *format,
               va_list args) {
  char stackLine[kStackLine];
  va_list retry;
  va_copy(retry, args);
  int length = 0;
  if (prefixLength < sizeof stackLine) {
    std::memcpy(stackLine, prefix, prefixLength);
    const size_t room = sizeof stackLine - prefixLength;
    length = std::vsnprintf(stackLine + prefixLength, room, format, args);
    if (length < 0 || static_cast<size_t>(length) < room) {
      stackLine[length < 0 ? prefixLength : prefixLength + static_cast<size_t>(length)] = '\0';
      va_end(retry);
      dlog_print(level, "OXA_API", "%s", stackLine);
      return;
    }
  } else {
    va_list count;
    va_copy(count, retry);
    length = std::max(std::vsnprintf(nullptr, 0, format, count), 0);
    va_end(count);
  }
  std::string longLine(prefix, prefixLength);
  longLine.resize(prefixLength + static_cast<size_t>(length) + 1);
  std::vsnprintf(longLine.data() + prefixLength, static_cast<size_t>(length) + 1, format, retry);
  va_end(retry);
  longLine.pop_back();
  dlog_print(level, "OXA_API", "%s", longLine.c_str());
}

}  // namespace

void writeLog(log_priority level, const char *file, const char *function, int line,
              const char *format, ...) {
  char stackPrefix[kStackLine];
  std::string longPrefix;
  const char *prefix = stackPrefix;
  int prefixLength =
      std::snprintf(stackPrefix, sizeof stackPrefix, "%s: %s(%d) > ", file, function, line);
  if (prefixLength < 0) {
    prefixLength = 0;
    stackPrefix[0] = '\0';
  } else if (static_cast<size_t>(prefixLength) >= sizeof stackPrefix) {
    longPrefix = std::string(file) + ": " + function + "(" + std::to_string(line) + ") > ";
    prefix = longPrefix.c_str();
  }
  va_list args;
  va_start(args, format);
  writeLine(level, prefix, static_cast<size_t>(prefixLength), format, args);
  va_end(args);
}

LogSite::LogSite(const char *file, const char *function, int line)
    : prefix(printPermanent("%s: %s(%d) > ", file, function, line)), prefixLength(std::strlen(prefix)) {}

void LogSite::write(log_priority level, const char *format, ...) const {
  va_list args;
  va_start(args, format);
  writeLine(level, prefix, prefixLength, format, args);
  va_end(args);
}

ConstantLogLine::ConstantLogLine(const char *file, const char *function, int line,
                                 const char *message)
    : text(printConstantLine(file, function, line, message)) {}

}  // namespace Oxa::Capi
