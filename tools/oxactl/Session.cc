#include "Session.h"

#include <cstdlib>
#include <string>
#include <utility>

#include "ErrorNames.h"
#include "Failure.h"

namespace oxactl {

namespace {

std::string runtimeDirectory() {
  const char *directory = std::getenv("RPC_PORT_RUNTIME_DIR");
  return directory != nullptr ? directory : "unset";
}

constexpr char kPrivilegeCheck[] =
    "does this program hold the privilege the agent requires (RPC_PORT_PRIVILEGES)?";

// Why the agent could not be reached, and what to look at.
OperationFailure connectionFailure(int result) {
  const std::string message =
      result == OXA_ERROR_PERMISSION_DENIED
          ? "the agent rejected this client: " + errorName(result) + "\ncheck: " + kPrivilegeCheck
          : "cannot connect to the agent: " + errorName(result) +
                "\ncheck: is the agent running? is RPC_PORT_RUNTIME_DIR (" + runtimeDirectory() +
                ") the directory it listens in? " + kPrivilegeCheck;
  return {ExitStatus::kConnection, "oxa_initialize", result, message};
}

}  // namespace

Connection::Connection(MainLoop &loop) : loop_(loop) {
  const int started = oxa_initialize(&Connection::onInitialized, this);
  if (started != OXA_ERROR_NONE) {
    throw connectionFailure(started);
  }
  if (loop_.runUntil([this] { return outcome_.has_value(); }, kAnswerLimit) != WaitEnd::kDone) {
    throw Failure(ExitStatus::kConnection, "the agent did not answer the connection within " +
                                               std::to_string(kAnswerLimit.count()) + " s");
  }
  if (*outcome_ != OXA_ERROR_NONE) {
    throw connectionFailure(*outcome_);
  }
}

Connection::~Connection() {
  oxa_deinitialize();
}

void Connection::checkAlive() const {
  if (lost_) {
    throw OperationFailure(ExitStatus::kConnection, "oxa_initialize", OXA_ERROR_INTERNAL_ERROR,
                           "lost the connection to the agent");
  }
}

void Connection::onInitialized(oxa_error_e result, void *self) {
  auto *connection = static_cast<Connection *>(self);
  if (!connection->outcome_) {
    connection->outcome_ = result;
    return;
  }
  // Reported again only when the connection is gone.
  connection->lost_ = true;
  connection->loop_.stop();
}

Service::Service(int type) : type_(type) {
  check("oxa_service_create", oxa_service_create(static_cast<oxa_service_type_e>(type), &service_));
}

Service::~Service() {
  oxa_service_destroy(service_);
}

void Service::registerWith(MainLoop &loop, const Connection &connection) {
  check("oxa_service_register", oxa_service_register(service_, &Service::onRegistered, this));
  const WaitEnd end = loop.runUntil([this] { return registration_.has_value(); }, kAnswerLimit);
  connection.checkAlive();
  if (end != WaitEnd::kDone) {
    throw Failure(ExitStatus::kTimeout, "the agent did not answer the service registration");
  }
  check("oxa_service_register", *registration_);
}

void Service::onRegistered(oxa_service_h /*service*/, oxa_error_e result, void *self) {
  static_cast<Service *>(self)->registration_ = result;
}

Subscription::Subscription(Subscription &&other) noexcept
    : service_(other.service_), unset_(std::exchange(other.unset_, nullptr)) {}

Subscription::~Subscription() {
  if (unset_ != nullptr) {
    unset_(service_);
  }
}

void Subscription::start(const char *operation, int result) {
  if (result != OXA_ERROR_NONE) {
    unset_ = nullptr;
    throw OperationFailure(operation, result);
  }
}

Discovery::Discovery(oxa_service_h service) : service_(service) {
  check("oxa_start_discovery", oxa_start_discovery(service));
}

Discovery::~Discovery() {
  oxa_stop_discovery(service_);
}

}  // namespace oxactl
