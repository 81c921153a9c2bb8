#ifndef OXA_TOOLS_AGENT_SIM_CONTROL_SOCKET_H_
#define OXA_TOOLS_AGENT_SIM_CONTROL_SOCKET_H_

#include <glib.h>

#include <functional>
#include <list>
#include <string>

#include "FileDescriptor.h"

namespace oxa_sim {

// A Unix stream socket on which tools send one line at a time and read one answer line for each.
// Everything runs on the thread-default GLib main context with non-blocking I/O, so a slow or
// stuck tool never holds up the simulator: a tool whose line grows past kMaxControlLineBytes, or
// who leaves more than kMaxControlPendingBytes of answers unread, is disconnected.
class ControlSocket {
 public:
  // Maps one line (without its newline) to its answer (without a newline).
  using Handler = std::function<std::string(const std::string &line)>;

  ControlSocket(std::string path, Handler handler);
  ~ControlSocket();
  ControlSocket(const ControlSocket &) = delete;
  ControlSocket &operator=(const ControlSocket &) = delete;

  // Binds `path` (replacing a stale socket there) and listens; throws std::runtime_error.
  void listen();

 private:
  class Connection;

  static gboolean onAcceptable(gint fd, GIOCondition condition, gpointer self);
  static gboolean onBackoffElapsed(gpointer self);
  void accept();
  void drop(Connection *connection);

  std::string path_;
  Handler handler_;
  FileDescriptor listener_;
  guint watch_ = 0;
  guint backoff_ = 0;
  std::list<Connection> connections_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_CONTROL_SOCKET_H_
