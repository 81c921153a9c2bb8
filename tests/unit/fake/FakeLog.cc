// dlog_print/dlog_vprint and the per-thread last result.

#include <capi-base-common.h>

#include <cstdarg>
#include <cstdio>

#include "FakeState.h"

namespace {

thread_local int lastResult = 0;

std::string format(const char *fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  if (length <= 0) {
    return {};
  }
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), fmt, args);
  text.resize(static_cast<size_t>(length));
  return text;
}

}  // namespace

extern "C" {

int dlog_vprint(log_priority prio, const char *tag, const char *fmt, va_list ap) {
  fake::LogLine line;
  line.level = prio;
  line.tag = tag != nullptr ? tag : "";
  line.format = fmt != nullptr ? fmt : "";
  line.message = fmt != nullptr ? format(fmt, ap) : "";
  const int written = static_cast<int>(line.message.size());
  fake::State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  current.logs.push_back(std::move(line));
  return written;
}

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int written = dlog_vprint(prio, tag, fmt, args);
  va_end(args);
  return written;
}

int get_last_result(void) {
  return lastResult;
}

void set_last_result(int result) {
  lastResult = result;
}

}  // extern "C"
