// The library's own log lines: "<file>: <function>(<line>) > <message>", tag "OXA_API".
//
// Most lines are debug lines that the platform then filters out, so what every call costs is
// kept small: the prefix of a call site is built once, a constant line entirely once, and a
// formatted message is printed straight behind its prefix in one pass.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "Exception.h"

namespace Oxa::Capi {

namespace {

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

// vsnprintf of a format that comes with no arguments: a constant message is printed as the
// format it is, so that "%%" reads "%" as it does in a formatted line.
int printWithoutArguments(char *out, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(out, size, format, args);
  va_end(args);
  return length;
}

// The line of a constant message, printed once.
const char *printConstantLine(const char *file, const char *function, int line,
                              const char *message) {
  std::string text = std::string(file) + ": " + function + "(" + std::to_string(line) + ") > ";
  const int length = printWithoutArguments(nullptr, 0, message);
  if (length > 0) {
    const size_t prefixLength = text.size();
    text.resize(prefixLength + static_cast<size_t>(length) + 1);
    printWithoutArguments(text.data() + prefixLength, static_cast<size_t>(length) + 1, message);
    text.pop_back();
  }
  return printPermanent("%s", text.c_str());
}

}  // namespace

LogSite::LogSite(const char *file, const char *function, int line)
    : prefix(printPermanent("%s: %s(%d) > ", file, function, line)),
      prefixLength(std::strlen(prefix)) {}

void LogSite::write(log_priority level, const char *format, ...) const {
  va_list args;
  va_start(args, format);
  writeLogLine(level, prefix, prefixLength, format, args);
  va_end(args);
}

ConstantLogLine::ConstantLogLine(const char *file, const char *function, int line,
                                 const char *message)
    : text(printConstantLine(file, function, line, message)) {}

}  // namespace Oxa::Capi
