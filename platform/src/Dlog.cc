// The platform log: "<L>/<TAG>(<pid>): <message>\n", one line per call, filtered by $DLOG_LEVEL.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "DlogSettings.h"
#include "DlogSink.h"
#include "Exported.h"

namespace {

// Letters and their ranks (V < D < I < W < E < F < S) indexed by log_priority; DEFAULT and UNKNOWN
// log as info.
constexpr char kLetters[] = {'I', 'I', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
constexpr int kRanks[] = {2, 2, 0, 1, 2, 3, 4, 5, 6};
constexpr int kSilentRank = 6;
constexpr size_t kStackLine = 1024;

int priorityIndex(log_priority prio) {
  return (prio >= DLOG_UNKNOWN && prio <= DLOG_SILENT) ? static_cast<int>(prio) : DLOG_INFO;
}

// Formats the whole line into `stack`, or into `heap` when it does not fit; returns its length.
int formatLine(char (&stack)[kStackLine], std::string &heap, char letter, const char *tag,
               const char *fmt, va_list ap) {
  const int prefix =
      std::snprintf(stack, sizeof stack, "%c/%s(%d): ", letter, tag, static_cast<int>(getpid()));
  if (prefix < 0) {
    return -EINVAL;
  }
  va_list retry;
  va_copy(retry, ap);
  const size_t offset = static_cast<size_t>(prefix) < sizeof stack ? prefix : sizeof stack - 1;
  const int body = std::vsnprintf(stack + offset, sizeof stack - offset, fmt, ap);
  int length = body < 0 ? -EINVAL : prefix + body + 1;
  if (length > 0 && static_cast<size_t>(length) >= sizeof stack) {
    heap.resize(static_cast<size_t>(length) + 1);
    std::snprintf(heap.data(), heap.size(), "%c/%s(%d): ", letter, tag, static_cast<int>(getpid()));
    std::vsnprintf(heap.data() + prefix, heap.size() - prefix, fmt, retry);
    heap[length - 1] = '\n';
  } else if (length > 0) {
    stack[length - 1] = '\n';
  }
  va_end(retry);
  return length;
}

// Formats and writes one line that passed the filter; kept out of line (it needs a large stack
// frame), so that a filtered line costs only the check.
__attribute__((noinline)) int writeLine(int index, const char *file, const char *tag,
                                        const char *fmt, va_list ap) {
  char stack[kStackLine];
  std::string heap;
  const int length = formatLine(stack, heap, kLetters[index], tag != nullptr ? tag : "", fmt, ap);
  if (length < 0) {
    return length;
  }
  const char *line = heap.empty() ? stack : heap.data();
  return platform::writeLogLine(file, line, static_cast<size_t>(length));
}

// Whether a line of priority `index` is dropped when lines below `thresholdRank` are.
bool isFiltered(int index, int thresholdRank) {
  return kRanks[index] == kSilentRank || kRanks[index] < thresholdRank;
}

// The result of a call whose line is not written: -EINVAL without a format, 0 for a line that the
// level drops; 1 when the line is to be written.
int checkLine(int index, const char *fmt) {
  if (fmt == nullptr) {
    return -EINVAL;
  }
  return isFiltered(index, platform::currentThresholdRank()) ? 0 : 1;
}

}  // namespace

extern "C" int dlog_vprint(log_priority prio, const char *tag, const char *fmt, va_list ap) {
  const int index = priorityIndex(prio);
  const int check = checkLine(index, fmt);
  return check == 1 ? writeLine(index, platform::currentDlogFile(), tag, fmt, ap) : check;
}

// Checked before the argument list is started: most lines are dropped.
extern "C" int dlog_print(log_priority prio, const char *tag, const char *fmt, ...) {
  const int index = priorityIndex(prio);
  const int check = checkLine(index, fmt);
  if (check != 1) {
    return check;
  }
  va_list ap;
  va_start(ap, fmt);
  const int result = writeLine(index, platform::currentDlogFile(), tag, fmt, ap);
  va_end(ap);
  return result;
}
