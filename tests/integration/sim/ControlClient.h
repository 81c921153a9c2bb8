#ifndef OXA_TESTS_INTEGRATION_CONTROL_CLIENT_H_
#define OXA_TESTS_INTEGRATION_CONTROL_CLIENT_H_

#include <chrono>
#include <optional>
#include <string>

// A tool on the simulator's control socket: writes lines, reads answer lines, every wait bounded.
namespace oxa::test {

class ControlClient {
 public:
  // Connects to the Unix socket at `path`; connected() tells whether that worked.
  explicit ControlClient(const std::string &path);
  ~ControlClient();
  ControlClient(const ControlClient &) = delete;
  ControlClient &operator=(const ControlClient &) = delete;

  bool connected() const { return fd_ >= 0; }
  // Writes `text` as it is; false when the simulator closed the connection or the write did not
  // go through within the timeout.
  bool write(const std::string &text,
             std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
  // The next answer line without its newline; nullopt at the end of the connection or timeout.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(5));
  // Writes `line` and a newline, then reads its answer.
  std::optional<std::string> ask(const std::string &line);
  // Whether the simulator closed the connection (end of stream) within the timeout.
  bool closedBySimulator(std::chrono::milliseconds timeout = std::chrono::seconds(5));

 private:
  // Reads once into the buffer; false at end of stream, error or timeout.
  bool fill(std::chrono::milliseconds timeout);

  int fd_ = -1;
  std::string buffer_;
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_CONTROL_CLIENT_H_
