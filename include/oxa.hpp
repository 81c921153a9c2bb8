/**
 * @file oxa.hpp
 * @brief C++17 interface of the OXA client library, header-only, over oxa.h.
 *
 * The same library as oxa.h, for application code written in C++:
 * - oxa::Service, oxa::Device, oxa::Command and oxa::SimpleMessage own their C handle and
 *   destroy it when they go out of scope; they move but do not copy.
 * - oxa::DeviceView and oxa::CommandView are the objects that a callback is lent. They neither
 *   copy nor move, so they cannot outlive the call by accident; clone() gives an owner.
 * - Callbacks are any callables (lambdas with captures, move-only ones included). A callable is
 *   kept for as long as the library may call it and released, captures and all, when its
 *   subscription is unset, when the service that set it is destroyed, when the connection ends
 *   (lost, or oxa::Connection closed), or, for a send, once its outcome has been delivered.
 * - Bytes are std::vector<std::uint8_t> (oxa::Bytes) going out and oxa::ByteView coming in;
 *   "no data" is an empty std::optional.
 * - Every fallible call returns an oxa::Result: test it and read error(), a std::error_code
 *   whose value is the C code unchanged and whose category (oxa::error_category()) gives the
 *   code's meaning; or call value(), which throws oxa::error (a std::system_error) on failure.
 *
 * The rules of oxa.h hold unchanged: make every call on the thread that runs the GLib main loop
 * on which oxa::Connection::open() was called; callbacks run on that loop. Only one
 * oxa::Connection is open at a time.
 *
 * @code
 * #include <oxa.hpp>
 *
 * GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
 * std::optional<oxa::Service> service;
 * auto connection = oxa::Connection::open([&](std::error_code result) {
 *   if (result) { g_main_loop_quit(loop); return; }
 *   service = oxa::Service::create(OXA_SERVICE_TYPE_1).value();
 *   service->on_device_found([](const oxa::DeviceView &device) {
 *     std::cout << device.name().value() << "\n";
 *   }).value();
 *   service->register_service([&](std::error_code registered) {
 *     if (!registered) service->start_discovery().value();
 *   }).value();
 * }).value();
 * g_main_loop_run(loop);
 * @endcode
 */
#ifndef OXA_HPP
#define OXA_HPP

#include <oxa.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace oxa {

using ServiceType = oxa_service_type_e;
using ContextType = oxa_context_type_e;
using DeviceType = oxa_device_type_e;
using CommandType = oxa_command_type_e;

// ---- Errors ------------------------------------------------------------------------------------

/** The library's result codes, with the values of ::oxa_error_e. */
enum class errc : int {
  none = OXA_ERROR_NONE,
  io_error = OXA_ERROR_IO_ERROR,
  out_of_memory = OXA_ERROR_OUT_OF_MEMORY,
  permission_denied = OXA_ERROR_PERMISSION_DENIED,
  invalid_parameter = OXA_ERROR_INVALID_PARAMETER,
  invalid_operation = OXA_ERROR_INVALID_OPERATION,
  no_data = OXA_ERROR_NO_DATA,
  not_supported = OXA_ERROR_NOT_SUPPORTED,
  internal_error = OXA_ERROR_INTERNAL_ERROR,
  lower_version = OXA_ERROR_LOWER_VERSION,
  no_device = OXA_ERROR_NO_DEVICE,
};

namespace detail {

class ErrorCategory final : public std::error_category {
 public:
  const char *name() const noexcept override { return "oxa"; }

  std::string message(int code) const override {
    switch (code) {
      case OXA_ERROR_NONE:
        return "Success";
      case OXA_ERROR_IO_ERROR:
        return "The transport to the agent failed";
      case OXA_ERROR_OUT_OF_MEMORY:
        return "An allocation failed";
      case OXA_ERROR_PERMISSION_DENIED:
        return "The agent refused this client";
      case OXA_ERROR_INVALID_PARAMETER:
        return "A missing or invalid argument";
      case OXA_ERROR_INVALID_OPERATION:
        return "The operation makes no sense here";
      case OXA_ERROR_NO_DATA:
        return "No data";
      case OXA_ERROR_NOT_SUPPORTED:
        return "Not supported for this service type";
      case OXA_ERROR_INTERNAL_ERROR:
        return "Not connected, or the agent did not answer";
      case OXA_ERROR_LOWER_VERSION:
        return "The agent is too old";
      case OXA_ERROR_NO_DEVICE:
        return "No such device";
      default:
        return "Unknown error " + std::to_string(code);
    }
  }

  // The small codes are negated errno values: they compare equal to std::errc conditions.
  std::error_condition default_error_condition(int code) const noexcept override {
    constexpr int kLargestErrno = 4095;
    if (code < 0 && code >= -kLargestErrno) {
      return {-code, std::generic_category()};
    }
    return {code, *this};
  }
};

}  // namespace detail

/** The category of the library's codes: name "oxa", messages the meaning of each constant. */
inline const std::error_category &error_category() noexcept {
  static const detail::ErrorCategory category;
  return category;
}

inline std::error_code make_error_code(errc code) noexcept {
  return {static_cast<int>(code), error_category()};
}

/**
 * A code returned by a C function of oxa.h, unchanged, as a std::error_code; success
 * (::OXA_ERROR_NONE) is the empty std::error_code, as everywhere in this interface.
 */
inline std::error_code make_error_code(int code) noexcept {
  if (code == OXA_ERROR_NONE) {
    return {};
  }
  return {code, error_category()};
}

/** What Result::value() throws: the failed call's code and, in what(), the C function's name. */
class error : public std::system_error {
 public:
  using std::system_error::system_error;
};

/**
 * The outcome of a call: a value of type T, or the std::error_code of the failure.
 * value() gives the value or throws oxa::error; error() gives the code (false on success).
 */
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(std::error_code code, const char *call) : code_(code), call_(call) {}

  explicit operator bool() const noexcept { return !code_; }
  bool has_value() const noexcept { return !code_; }
  const std::error_code &error() const noexcept { return code_; }

  T &value() & {
    check();
    return *value_;
  }
  const T &value() const & {
    check();
    return *value_;
  }
  T &&value() && {
    check();
    return std::move(*value_);
  }
  T &operator*() & { return value(); }
  const T &operator*() const & { return value(); }
  T *operator->() { return &value(); }
  const T *operator->() const { return &value(); }

 private:
  void check() const {
    if (code_) {
      throw oxa::error(code_, call_);
    }
  }

  std::optional<T> value_;
  std::error_code code_;
  const char *call_ = "";
};

/** The outcome of a call that gives no value. */
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(std::error_code code, const char *call) : code_(code), call_(call) {}

  explicit operator bool() const noexcept { return !code_; }
  bool has_value() const noexcept { return !code_; }
  const std::error_code &error() const noexcept { return code_; }
  /** Throws oxa::error when the call failed. */
  void value() const {
    if (code_) {
      throw oxa::error(code_, call_);
    }
  }

 private:
  std::error_code code_;
  const char *call_ = "";
};

namespace detail {

inline Result<void> result(int code, const char *call) {
  if (code == OXA_ERROR_NONE) {
    return {};
  }
  return {make_error_code(code), call};
}

template <typename T>
Result<T> failure(int code, const char *call) {
  return {make_error_code(code), call};
}

}  // namespace detail

// ---- Bytes -------------------------------------------------------------------------------------

using Bytes = std::vector<std::uint8_t>;

/** A borrowed, read-only run of bytes: the bytes given to the library or lent by it. */
class ByteView {
 public:
  constexpr ByteView() noexcept = default;
  constexpr ByteView(const std::uint8_t *data, std::size_t size) noexcept
      : data_(data), size_(size) {}
  ByteView(const Bytes &bytes) noexcept : data_(bytes.data()), size_(bytes.size()) {}
  template <std::size_t N>
  constexpr ByteView(const std::array<std::uint8_t, N> &bytes) noexcept
      : data_(bytes.data()), size_(N) {}
  template <std::size_t N>
  constexpr ByteView(const std::uint8_t (&bytes)[N]) noexcept : data_(bytes), size_(N) {}

  /** The characters of a text, without a terminator. */
  static ByteView of(std::string_view text) noexcept {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
  }

  constexpr const std::uint8_t *data() const noexcept { return data_; }
  constexpr std::size_t size() const noexcept { return size_; }
  constexpr bool empty() const noexcept { return size_ == 0; }
  constexpr const std::uint8_t *begin() const noexcept { return data_; }
  constexpr const std::uint8_t *end() const noexcept { return data_ + size_; }
  constexpr std::uint8_t operator[](std::size_t index) const noexcept { return data_[index]; }
  Bytes to_vector() const { return Bytes(begin(), end()); }

 private:
  const std::uint8_t *data_ = nullptr;
  std::size_t size_ = 0;
};

inline bool operator==(ByteView left, ByteView right) noexcept {
  return left.size() == right.size() &&
         (left.empty() || std::equal(left.begin(), left.end(), right.begin()));
}
inline bool operator!=(ByteView left, ByteView right) noexcept {
  return !(left == right);
}

namespace detail {

// The C interface counts bytes in an int; a longer run is refused before the call.
inline bool fitsInt(std::size_t size) noexcept {
  return size <= static_cast<std::size_t>(INT_MAX);
}

// Frees what a C getter allocated.
struct FreeDeleter {
  void operator()(void *memory) const noexcept { std::free(memory); }
};
template <typename T>
using CBuffer = std::unique_ptr<T, FreeDeleter>;

inline Result<std::string> takeString(int code, char *text, const char *call) {
  CBuffer<char> owned(text);
  if (code != OXA_ERROR_NONE) {
    return failure<std::string>(code, call);
  }
  return std::string(owned.get());
}

inline Result<Bytes> takeBytes(int code, unsigned char *bytes, int size, const char *call) {
  CBuffer<unsigned char> owned(bytes);
  if (code != OXA_ERROR_NONE) {
    return failure<Bytes>(code, call);
  }
  return Bytes(owned.get(), owned.get() + size);
}

inline Result<std::optional<Bytes>> takeData(int code, unsigned char *bytes, int size,
                                             const char *call) {
  CBuffer<unsigned char> owned(bytes);
  if (code != OXA_ERROR_NONE) {
    return failure<std::optional<Bytes>>(code, call);
  }
  if (size == 0) {
    return std::optional<Bytes>();
  }
  return std::optional<Bytes>(Bytes(owned.get(), owned.get() + size));
}

}  // namespace detail

// ---- Callables ---------------------------------------------------------------------------------

namespace detail {

// A type-erased callable that also holds move-only callables. A call keeps the callable alive
// until it returns, even when the callback releases its own holder meanwhile.
template <typename Signature>
class Function;

template <typename R, typename... Args>
class Function<R(Args...)> {
 public:
  Function() = default;
  template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Function>>>
  explicit Function(F &&callable)
      : model_(std::make_shared<Model<std::decay_t<F>>>(std::forward<F>(callable))) {}

  explicit operator bool() const noexcept { return model_ != nullptr; }
  void reset() noexcept { model_.reset(); }

  R operator()(Args... args) const {
    const std::shared_ptr<Concept> keep = model_;
    if (!keep) {
      return R();
    }
    return keep->call(std::forward<Args>(args)...);
  }

 private:
  struct Concept {
    Concept() = default;
    Concept(const Concept &) = delete;
    Concept &operator=(const Concept &) = delete;
    virtual ~Concept() = default;
    virtual R call(Args... args) = 0;
  };
  template <typename F>
  struct Model final : Concept {
    template <typename G>
    explicit Model(G &&callable) : callable(std::forward<G>(callable)) {}
    R call(Args... args) override {
      if constexpr (std::is_void_v<R>) {
        std::invoke(callable, std::forward<Args>(args)...);
      } else {
        return std::invoke(callable, std::forward<Args>(args)...);
      }
    }
    F callable;
  };

  std::shared_ptr<Concept> model_;
};

// What a callback slot is for; the subscriptions are named after their unset functions.
enum class Topic {
  connection,
  registered,
  state_changed,
  device_found,
  device_lost,
  context_changed,
  command_received,
  message_received,
  sent,
};

// The C library holds a slot's address as user data for as long as its delegate lives, which is
// until the connection ends; so a slot's memory stays until then, while its callable (and what
// it captures) is released as soon as no call is wanted any more.
struct Slot {
  Slot(oxa_service_h service, Topic topic) : service(service), topic(topic) {}
  Slot(const Slot &) = delete;
  Slot &operator=(const Slot &) = delete;
  virtual ~Slot() = default;
  virtual void release() noexcept = 0;

  oxa_service_h service;
  Topic topic;
};

template <typename Signature>
struct CallbackSlot final : Slot {
  template <typename F>
  CallbackSlot(oxa_service_h service, Topic topic, F &&callable)
      : Slot(service, topic), function(std::forward<F>(callable)) {}
  void release() noexcept override { function.reset(); }

  Function<Signature> function;
};

// A send in flight: the sent object stays alive here until its outcome has been delivered.
template <typename Sent>
struct SentSlot final : Slot {
  template <typename F>
  SentSlot(Sent sent, F &&callable)
      : Slot(nullptr, Topic::sent), sent(std::move(sent)), function(std::forward<F>(callable)) {}
  void release() noexcept override {
    function.reset();
    sent.reset();
  }

  std::optional<Sent> sent;
  Function<void(const Sent &, std::error_code)> function;
};

// Every slot of the current connection, and that connection's state. Used from the main-loop
// thread only, like the library itself.
class Registry {
 public:
  template <typename S>
  S &add(std::unique_ptr<S> slot) {
    S &added = *slot;
    slots_.push_back(std::move(slot));
    return added;
  }

  // Ends the callbacks of `service` for `topics`; their slots stay until the connection ends.
  void release(oxa_service_h service, std::initializer_list<Topic> topics) noexcept {
    for (const std::unique_ptr<Slot> &slot : slots_) {
      if (slot->service == service && service != nullptr && contains(topics, slot->topic)) {
        slot->release();
        slot->service = nullptr;
      }
    }
  }

  bool holds(oxa_service_h service, Topic topic) const noexcept {
    for (const std::unique_ptr<Slot> &slot : slots_) {
      if (slot->service == service && slot->topic == topic) {
        return true;
      }
    }
    return false;
  }

  // The connection is closed: no callback is wanted any more, though the library may still
  // hold the slots.
  void releaseAll() noexcept {
    for (const std::unique_ptr<Slot> &slot : slots_) {
      slot->release();
      slot->service = nullptr;
    }
    if (connection_) {
      connection_->release();
    }
  }

  // The library dropped every delegate (the connection was lost, or a new one replaced it):
  // no slot is referred to any more.
  void dropSubscriptions() noexcept { slots_.clear(); }

  // A new connection has replaced the previous one and its callback.
  void replaceConnection(std::unique_ptr<Slot> connection) noexcept {
    dropSubscriptions();
    connection_ = std::move(connection);
  }

  bool open = false;
  bool connected = false;

 private:
  static bool contains(std::initializer_list<Topic> topics, Topic topic) noexcept {
    for (Topic candidate : topics) {
      if (candidate == topic) {
        return true;
      }
    }
    return false;
  }

  std::vector<std::unique_ptr<Slot>> slots_;
  std::unique_ptr<Slot> connection_;
};

inline Registry &registry() {
  static Registry instance;
  return instance;
}

// Failures after which the library keeps no pointer to a send: it never reached the agent.
inline bool noOutcomeFollows(int code) {
  return code == OXA_ERROR_INVALID_PARAMETER || code == OXA_ERROR_PERMISSION_DENIED ||
         (code == OXA_ERROR_INTERNAL_ERROR && !registry().connected);
}

}  // namespace detail

// ---- Connection --------------------------------------------------------------------------------

/**
 * The connection to the agent (oxa_initialize() and oxa_deinitialize()). Closing it, or
 * destroying it, leaves the agent and releases every callback given through this header.
 */
class Connection {
 public:
  /**
   * Starts connecting; @p on_state is called as `void(std::error_code)` on the main loop with
   * the outcome (no error when connected) and later with the loss of the connection, exactly as
   * ::oxa_initialized_cb. Fails with errc::invalid_operation while another Connection is open,
   * and with the codes of oxa_initialize().
   */
  template <typename F>
  static Result<Connection> open(F &&on_state) {
    detail::Registry &registry = detail::registry();
    if (registry.open) {
      return detail::failure<Connection>(OXA_ERROR_INVALID_OPERATION, "oxa_initialize");
    }
    using Slot = detail::CallbackSlot<void(std::error_code)>;
    auto slot =
        std::make_unique<Slot>(nullptr, detail::Topic::connection, std::forward<F>(on_state));
    const int code = oxa_initialize(&onState, slot.get());
    if (code != OXA_ERROR_NONE) {
      return detail::failure<Connection>(code, "oxa_initialize");
    }
    registry.replaceConnection(std::move(slot));
    registry.open = true;
    registry.connected = false;
    return Connection();
  }

  Connection(Connection &&other) noexcept : active_(std::exchange(other.active_, false)) {}
  Connection &operator=(Connection &&other) noexcept {
    if (this != &other) {
      static_cast<void>(close());
      active_ = std::exchange(other.active_, false);
    }
    return *this;
  }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection() { static_cast<void>(close()); }

  /** Whether the agent has reported the connection up (and not lost since). */
  bool connected() const noexcept { return active_ && detail::registry().connected; }

  /**
   * Leaves the agent (oxa_deinitialize()) and releases every callback, this connection's own
   * included; its result is that of oxa_deinitialize(). Closing twice does nothing.
   */
  Result<void> close() noexcept {
    if (!std::exchange(active_, false)) {
      return {};
    }
    detail::Registry &registry = detail::registry();
    const int code = oxa_deinitialize();
    registry.releaseAll();
    registry.open = false;
    registry.connected = false;
    return detail::result(code, "oxa_deinitialize");
  }

 private:
  Connection() = default;

  static void onState(oxa_error_e result, void *user_data) {
    auto *slot = static_cast<detail::CallbackSlot<void(std::error_code)> *>(user_data);
    detail::Registry &registry = detail::registry();
    // A closed connection may still report; it no longer counts as connected.
    registry.connected = registry.open && result == OXA_ERROR_NONE;
    if (result != OXA_ERROR_NONE) {
      // Lost or refused: the library holds no subscription any more.
      registry.dropSubscriptions();
    }
    slot->function(make_error_code(result));
  }

  bool active_ = true;
};

// ---- Handles -----------------------------------------------------------------------------------

namespace detail {

// A C handle, for the readers of the objects behind it.
template <typename Handle>
class HandleHolder {
 public:
  Handle get() const noexcept { return handle_; }

 protected:
  explicit HandleHolder(Handle handle) noexcept : handle_(handle) {}

  Handle handle_;
};

// An owner of the handle that `Base` reads: destroys it with `Destroy`; moves, does not copy.
template <typename Base, typename Handle, int (*Destroy)(Handle)>
class Owned : public Base {
 public:
  /** Takes over a handle that the application owns. */
  explicit Owned(Handle owned) noexcept : Base(owned) {}
  Owned(Owned &&other) noexcept : Base(std::exchange(other.handle_, nullptr)) {}
  Owned &operator=(Owned &&other) noexcept {
    if (this != &other) {
      reset();
      this->handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
  }
  Owned(const Owned &) = delete;
  Owned &operator=(const Owned &) = delete;
  ~Owned() { reset(); }

  /** Gives the handle up to the caller, who destroys it with the C destroy function. */
  Handle release() noexcept { return std::exchange(this->handle_, nullptr); }

 private:
  void reset() noexcept {
    if (this->handle_ != nullptr) {
      Destroy(std::exchange(this->handle_, nullptr));
    }
  }
};

// A view of a handle that the library lends for one call: it neither copies nor moves, so it
// cannot be kept past the call by accident.
template <typename Base, typename Handle>
class Lent : public Base {
 public:
  explicit Lent(Handle borrowed) noexcept : Base(borrowed) {}
  Lent(const Lent &) = delete;
  Lent &operator=(const Lent &) = delete;
  Lent(Lent &&) = delete;
  Lent &operator=(Lent &&) = delete;
  ~Lent() = default;
};

}  // namespace detail

// ---- Devices -----------------------------------------------------------------------------------

class Device;

namespace detail {

// What a device, owned or borrowed, can tell.
class DeviceReader : public HandleHolder<oxa_device_h> {
 public:
  /** oxa_device_get_name() */
  Result<std::string> name() const {
    char *text = nullptr;
    const int code = oxa_device_get_name(handle_, &text);
    return takeString(code, text, "oxa_device_get_name");
  }
  /** oxa_device_get_address(): the 17-character text form. */
  Result<std::string> address() const {
    char *text = nullptr;
    const int code = oxa_device_get_address(handle_, &text);
    return takeString(code, text, "oxa_device_get_address");
  }
  /** oxa_device_get_type() */
  Result<DeviceType> type() const {
    DeviceType type = OXA_DEVICE_TYPE_UNKNOWN;
    const int code = oxa_device_get_type(handle_, &type);
    if (code != OXA_ERROR_NONE) {
      return failure<DeviceType>(code, "oxa_device_get_type");
    }
    return type;
  }
  /** oxa_device_get_raw_context(): the advertised bytes, or no value when there are none. */
  Result<std::optional<Bytes>> raw_context() const {
    unsigned char *bytes = nullptr;
    int size = 0;
    const int code = oxa_device_get_raw_context(handle_, &bytes, &size);
    return takeData(code, bytes, size, "oxa_device_get_raw_context");
  }
  /** oxa_device_get_context(): the context bytes, or no value when there are none. */
  Result<std::optional<Bytes>> context(ServiceType service_type, ContextType context_type) const {
    unsigned char *bytes = nullptr;
    int size = 0;
    const int code = oxa_device_get_context(handle_, service_type, context_type, &bytes, &size);
    return takeData(code, bytes, size, "oxa_device_get_context");
  }
  /** oxa_device_clone(): an independent device that the caller owns. */
  Result<Device> clone() const;

 protected:
  using HandleHolder::HandleHolder;
};

}  // namespace detail

/** A device the application owns (oxa_device_clone(), oxa_get_my_device()). */
class Device : public detail::Owned<detail::DeviceReader, oxa_device_h, oxa_device_destroy> {
 public:
  using Owned::Owned;
};

/** A device lent to a callback for the duration of the call; clone() keeps it. */
class DeviceView : public detail::Lent<detail::DeviceReader, oxa_device_h> {
 public:
  using Lent::Lent;
};

inline Result<Device> detail::DeviceReader::clone() const {
  oxa_device_h copy = nullptr;
  const int code = oxa_device_clone(handle_, &copy);
  if (code != OXA_ERROR_NONE) {
    return failure<Device>(code, "oxa_device_clone");
  }
  return Device(copy);
}

// ---- Commands and simple messages --------------------------------------------------------------

class Command;

namespace detail {

// What a command, owned or borrowed, can tell.
class CommandReader : public HandleHolder<oxa_command_h> {
 public:
  /** oxa_command_get_id() */
  Result<int> id() const {
    int id = 0;
    const int code = oxa_command_get_id(handle_, &id);
    if (code != OXA_ERROR_NONE) {
      return failure<int>(code, "oxa_command_get_id");
    }
    return id;
  }
  /** oxa_command_get_type() */
  Result<CommandType> type() const {
    CommandType type = OXA_COMMAND_TYPE_1;
    const int code = oxa_command_get_type(handle_, &type);
    if (code != OXA_ERROR_NONE) {
      return failure<CommandType>(code, "oxa_command_get_type");
    }
    return type;
  }
  /** oxa_command_get_payload() */
  Result<Bytes> payload() const {
    unsigned char *bytes = nullptr;
    int size = 0;
    const int code = oxa_command_get_payload(handle_, &bytes, &size);
    return takeBytes(code, bytes, size, "oxa_command_get_payload");
  }
  /** oxa_command_get_address(): the destination, or for a received command its sender. */
  Result<std::string> address() const {
    char *text = nullptr;
    const int code = oxa_command_get_address(handle_, &text);
    return takeString(code, text, "oxa_command_get_address");
  }

 protected:
  using HandleHolder::HandleHolder;
};

}  // namespace detail

/** A command the application created (oxa_command_create()). */
class Command : public detail::Owned<detail::CommandReader, oxa_command_h, oxa_command_destroy> {
 public:
  using Owned::Owned;

  /** oxa_command_create(); @p address is the destination's 17-character text. */
  static Result<Command> create(std::string_view address, CommandType type, int id,
                                ByteView payload = {}) {
    if (!detail::fitsInt(payload.size())) {
      return detail::failure<Command>(OXA_ERROR_INVALID_PARAMETER, "oxa_command_create");
    }
    const std::string text(address);
    oxa_command_h handle = nullptr;
    const int code = oxa_command_create(text.c_str(), type, id, payload.data(),
                                        static_cast<int>(payload.size()), &handle);
    if (code != OXA_ERROR_NONE) {
      return detail::failure<Command>(code, "oxa_command_create");
    }
    return Command(handle);
  }
};

/** A received command lent to a callback for the duration of the call. */
class CommandView : public detail::Lent<detail::CommandReader, oxa_command_h> {
 public:
  using Lent::Lent;

  /** A command of the same address, type, id and payload that the caller owns. */
  Result<Command> clone() const {
    Result<std::string> from = address();
    if (!from) {
      return detail::failure<Command>(from.error().value(), "oxa_command_get_address");
    }
    Result<Bytes> bytes = payload();
    if (!bytes) {
      return detail::failure<Command>(bytes.error().value(), "oxa_command_get_payload");
    }
    return Command::create(*from, *type(), *id(), *bytes);
  }
};

/** A simple message the application created (oxa_simple_message_create()). */
class SimpleMessage : public detail::Owned<detail::HandleHolder<oxa_simple_message_h>,
                                           oxa_simple_message_h, oxa_simple_message_destroy> {
 public:
  using Owned::Owned;

  /** oxa_simple_message_create(); @p address is the destination's 17-character text. */
  static Result<SimpleMessage> create(std::string_view address, ByteView data) {
    if (!detail::fitsInt(data.size())) {
      return detail::failure<SimpleMessage>(OXA_ERROR_INVALID_PARAMETER,
                                            "oxa_simple_message_create");
    }
    const std::string text(address);
    oxa_simple_message_h handle = nullptr;
    const int code = oxa_simple_message_create(text.c_str(), data.data(),
                                               static_cast<int>(data.size()), &handle);
    if (code != OXA_ERROR_NONE) {
      return detail::failure<SimpleMessage>(code, "oxa_simple_message_create");
    }
    return SimpleMessage(handle);
  }
};

// ---- Services ----------------------------------------------------------------------------------

/**
 * A service the application owns (oxa_service_create()). Destroying it ends, at the agent, the
 * subscriptions that were set through it, releases their callbacks, and then destroys the
 * handle, which unregisters the service. Subscriptions belong to the service type at the agent:
 * ending them also ends those of another service of the same type.
 */
class Service {
 public:
  /** oxa_service_create() */
  static Result<Service> create(ServiceType type) {
    oxa_service_h handle = nullptr;
    const int code = oxa_service_create(type, &handle);
    if (code != OXA_ERROR_NONE) {
      return detail::failure<Service>(code, "oxa_service_create");
    }
    return Service(handle);
  }

  /** Takes over a handle that the application owns. */
  explicit Service(oxa_service_h owned) noexcept : handle_(owned) {}
  Service(Service &&other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Service &operator=(Service &&other) noexcept {
    if (this != &other) {
      reset();
      handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
  }
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service() { reset(); }

  oxa_service_h get() const noexcept { return handle_; }

  /**
   * oxa_service_register(); @p on_registered is called as `void(std::error_code)` with the
   * agent's answer. A later call replaces it. Keep the service alive until the answer came.
   */
  template <typename F>
  Result<void> register_service(F &&on_registered) {
    detail::registry().release(handle_, {detail::Topic::registered});
    auto &slot =
        add<void(std::error_code)>(detail::Topic::registered, std::forward<F>(on_registered));
    return settle(slot, oxa_service_register(handle_, &onRegistered, &slot),
                  "oxa_service_register");
  }
  /** oxa_service_unregister(); the registration callback is released. */
  Result<void> unregister() {
    detail::registry().release(handle_, {detail::Topic::registered});
    return detail::result(oxa_service_unregister(handle_), "oxa_service_unregister");
  }
  /** oxa_service_get_state(): 0 or 1. */
  Result<int> state() const {
    int state = 0;
    const int code = oxa_service_get_state(handle_, &state);
    if (code != OXA_ERROR_NONE) {
      return detail::failure<int>(code, "oxa_service_get_state");
    }
    return state;
  }
  /** oxa_service_set_app_id() */
  Result<void> set_app_id(int app_id) {
    return detail::result(oxa_service_set_app_id(handle_, app_id), "oxa_service_set_app_id");
  }
  /** oxa_start_discovery() */
  Result<void> start_discovery() {
    return detail::result(oxa_start_discovery(handle_), "oxa_start_discovery");
  }
  /** oxa_stop_discovery() */
  Result<void> stop_discovery() {
    return detail::result(oxa_stop_discovery(handle_), "oxa_stop_discovery");
  }

  /**
   * oxa_foreach_found_device(): calls @p visit with a `const DeviceView &` for each found
   * device, before returning; @p visit returns false to stop, or nothing to see them all.
   */
  template <typename F>
  Result<void> for_each_found_device(F &&visit) const {
    using Visitor = std::remove_reference_t<F>;
    const int code = oxa_foreach_found_device(handle_, &onFoundDevice<Visitor>,
                                              const_cast<std::remove_const_t<Visitor> *>(&visit));
    return detail::result(code, "oxa_foreach_found_device");
  }
  /** Copies of the devices found so far, in the agent's order. */
  Result<std::vector<Device>> found_devices() const {
    std::vector<Device> devices;
    int failed = OXA_ERROR_NONE;
    Result<void> listed = for_each_found_device([&](const DeviceView &device) {
      Result<Device> copy = device.clone();
      if (!copy) {
        failed = copy.error().value();
        return false;
      }
      devices.push_back(std::move(copy).value());
      return true;
    });
    if (!listed) {
      return detail::failure<std::vector<Device>>(listed.error().value(),
                                                  "oxa_foreach_found_device");
    }
    if (failed != OXA_ERROR_NONE) {
      return detail::failure<std::vector<Device>>(failed, "oxa_device_clone");
    }
    return devices;
  }
  /** oxa_get_my_device() */
  Result<Device> my_device(std::string_view address) const {
    const std::string text(address);
    oxa_device_h device = nullptr;
    const int code = oxa_get_my_device(handle_, text.c_str(), &device);
    if (code != OXA_ERROR_NONE) {
      return detail::failure<Device>(code, "oxa_get_my_device");
    }
    return Device(device);
  }
  /** oxa_update_context() */
  Result<void> update_context(ContextType context_type, ByteView data) {
    if (!detail::fitsInt(data.size())) {
      return detail::result(OXA_ERROR_INVALID_PARAMETER, "oxa_update_context");
    }
    return detail::result(
        oxa_update_context(handle_, context_type, data.data(), static_cast<int>(data.size())),
        "oxa_update_context");
  }

  /**
   * oxa_send_command(). The service keeps @p command until the outcome arrives, then calls
   * @p on_sent as `void(const Command &, std::error_code)` and destroys the command. When the
   * send fails before reaching the agent, the command is destroyed at once and no outcome
   * follows.
   */
  template <typename F>
  Result<void> send(Command command, F &&on_sent) {
    auto &slot = detail::registry().add(
        std::make_unique<detail::SentSlot<Command>>(std::move(command), std::forward<F>(on_sent)));
    const int code =
        oxa_send_command(handle_, slot.sent->get(), &onSent<Command, oxa_command_h>, &slot);
    return settleSend(slot, code, "oxa_send_command");
  }
  /** oxa_send_command() without a callback; the command is kept until the outcome arrives. */
  Result<void> send(Command command) {
    return send(std::move(command), [](const Command &, std::error_code) {});
  }
  /** oxa_send_simple_message(), as send() of a command. */
  template <typename F>
  Result<void> send(SimpleMessage message, F &&on_sent) {
    auto &slot = detail::registry().add(std::make_unique<detail::SentSlot<SimpleMessage>>(
        std::move(message), std::forward<F>(on_sent)));
    const int code = oxa_send_simple_message(handle_, slot.sent->get(),
                                             &onSent<SimpleMessage, oxa_simple_message_h>, &slot);
    return settleSend(slot, code, "oxa_send_simple_message");
  }
  Result<void> send(SimpleMessage message) {
    return send(std::move(message), [](const SimpleMessage &, std::error_code) {});
  }

  /** oxa_service_set_state_changed_cb(); @p on_state is called as `void(int state)`. */
  template <typename F>
  Result<void> on_state_changed(F &&on_state) {
    auto &slot = add<void(int)>(detail::Topic::state_changed, std::forward<F>(on_state));
    return settle(slot, oxa_service_set_state_changed_cb(handle_, &onStateChanged, &slot),
                  "oxa_service_set_state_changed_cb");
  }
  Result<void> unset_state_changed() {
    return unset(oxa_service_unset_state_changed_cb, {detail::Topic::state_changed},
                 "oxa_service_unset_state_changed_cb");
  }

  /** oxa_set_device_found_cb(); @p on_found is called as `void(const DeviceView &)`. */
  template <typename F>
  Result<void> on_device_found(F &&on_found) {
    return subscribeDevice(detail::Topic::device_found, oxa_set_device_found_cb,
                           std::forward<F>(on_found), "oxa_set_device_found_cb");
  }
  Result<void> unset_device_found() {
    return unset(oxa_unset_device_found_cb, {detail::Topic::device_found},
                 "oxa_unset_device_found_cb");
  }
  /** oxa_set_device_lost_cb(); @p on_lost is called as `void(const DeviceView &)`. */
  template <typename F>
  Result<void> on_device_lost(F &&on_lost) {
    return subscribeDevice(detail::Topic::device_lost, oxa_set_device_lost_cb,
                           std::forward<F>(on_lost), "oxa_set_device_lost_cb");
  }
  Result<void> unset_device_lost() {
    return unset(oxa_unset_device_lost_cb, {detail::Topic::device_lost},
                 "oxa_unset_device_lost_cb");
  }
  /** oxa_set_context_changed_cb(); @p on_changed is called as `void(const DeviceView &)`. */
  template <typename F>
  Result<void> on_context_changed(F &&on_changed) {
    return subscribeDevice(detail::Topic::context_changed, oxa_set_context_changed_cb,
                           std::forward<F>(on_changed), "oxa_set_context_changed_cb");
  }
  Result<void> unset_context_changed() {
    return unset(oxa_unset_context_changed_cb, {detail::Topic::context_changed},
                 "oxa_unset_context_changed_cb");
  }
  /** oxa_set_command_received_cb(); @p on_command is called as `void(const CommandView &)`. */
  template <typename F>
  Result<void> on_command_received(F &&on_command) {
    auto &slot = add<void(const CommandView &)>(detail::Topic::command_received,
                                                std::forward<F>(on_command));
    return settle(slot, oxa_set_command_received_cb(handle_, &onCommandReceived, &slot),
                  "oxa_set_command_received_cb");
  }
  /** Ends commands and simple messages alike: they are one subscription at the agent. */
  Result<void> unset_command_received() {
    return unset(oxa_unset_command_received_cb,
                 {detail::Topic::command_received, detail::Topic::message_received},
                 "oxa_unset_command_received_cb");
  }
  /**
   * oxa_set_simple_message_received_cb(); @p on_message is called as
   * `void(std::string_view address, ByteView data)`, both lent for the call.
   */
  template <typename F>
  Result<void> on_simple_message_received(F &&on_message) {
    auto &slot = add<void(std::string_view, ByteView)>(detail::Topic::message_received,
                                                       std::forward<F>(on_message));
    return settle(slot, oxa_set_simple_message_received_cb(handle_, &onMessageReceived, &slot),
                  "oxa_set_simple_message_received_cb");
  }
  /** Ends simple messages and commands alike: they are one subscription at the agent. */
  Result<void> unset_simple_message_received() {
    return unset(oxa_unset_simple_message_received_cb,
                 {detail::Topic::command_received, detail::Topic::message_received},
                 "oxa_unset_simple_message_received_cb");
  }

 private:
  template <typename Signature, typename F>
  detail::CallbackSlot<Signature> &add(detail::Topic topic, F &&callable) {
    return detail::registry().add(std::make_unique<detail::CallbackSlot<Signature>>(
        handle_, topic, std::forward<F>(callable)));
  }

  // A refused subscription gets no events: its callable is released at once.
  static Result<void> settle(detail::Slot &slot, int code, const char *call) {
    if (code != OXA_ERROR_NONE) {
      slot.release();
      slot.service = nullptr;
    }
    return detail::result(code, call);
  }

  static Result<void> settleSend(detail::Slot &slot, int code, const char *call) {
    if (detail::noOutcomeFollows(code)) {
      slot.release();
    }
    return detail::result(code, call);
  }

  template <typename F, typename Set>
  Result<void> subscribeDevice(detail::Topic topic, Set set, F &&callable, const char *call) {
    auto &slot = add<void(const DeviceView &)>(topic, std::forward<F>(callable));
    return settle(slot, set(handle_, &onDevice, &slot), call);
  }

  Result<void> unset(int (*unsetter)(oxa_service_h), std::initializer_list<detail::Topic> topics,
                     const char *call) {
    const int code = unsetter(handle_);
    if (code == OXA_ERROR_NONE) {
      detail::registry().release(handle_, topics);
    }
    return detail::result(code, call);
  }

  void reset() noexcept {
    if (handle_ == nullptr) {
      return;
    }
    detail::Registry &registry = detail::registry();
    if (registry.connected) {
      endSubscriptions(registry);
    }
    registry.release(handle_, {detail::Topic::registered, detail::Topic::state_changed,
                               detail::Topic::device_found, detail::Topic::device_lost,
                               detail::Topic::context_changed, detail::Topic::command_received,
                               detail::Topic::message_received});
    oxa_service_destroy(std::exchange(handle_, nullptr));
  }

  // The agent keeps subscriptions past the handle; end those this service set.
  void endSubscriptions(const detail::Registry &registry) const noexcept {
    using detail::Topic;
    const std::pair<Topic, int (*)(oxa_service_h)> unsetters[] = {
        {Topic::state_changed, oxa_service_unset_state_changed_cb},
        {Topic::device_found, oxa_unset_device_found_cb},
        {Topic::device_lost, oxa_unset_device_lost_cb},
        {Topic::context_changed, oxa_unset_context_changed_cb},
    };
    for (const auto &[topic, unsetter] : unsetters) {
      if (registry.holds(handle_, topic)) {
        unsetter(handle_);
      }
    }
    if (registry.holds(handle_, Topic::command_received) ||
        registry.holds(handle_, Topic::message_received)) {
      oxa_unset_command_received_cb(handle_);
    }
  }

  static void onRegistered(oxa_service_h, oxa_error_e result, void *user_data) {
    static_cast<detail::CallbackSlot<void(std::error_code)> *>(user_data)->function(
        make_error_code(result));
  }
  static void onStateChanged(oxa_service_h, int state, void *user_data) {
    static_cast<detail::CallbackSlot<void(int)> *>(user_data)->function(state);
  }
  static void onDevice(oxa_device_h device, void *user_data) {
    const DeviceView view(device);
    static_cast<detail::CallbackSlot<void(const DeviceView &)> *>(user_data)->function(view);
  }
  static void onCommandReceived(oxa_command_h command, void *user_data) {
    const CommandView view(command);
    static_cast<detail::CallbackSlot<void(const CommandView &)> *>(user_data)->function(view);
  }
  static void onMessageReceived(const char *address, const unsigned char *data, int size,
                                void *user_data) {
    static_cast<detail::CallbackSlot<void(std::string_view, ByteView)> *>(user_data)->function(
        std::string_view(address), ByteView(data, static_cast<std::size_t>(size)));
  }
  // One outcome per send: the slot gives up the sent object and the callable before the call.
  template <typename Sent, typename Handle>
  static void onSent(Handle, oxa_error_e result, void *user_data) {
    auto *slot = static_cast<detail::SentSlot<Sent> *>(user_data);
    std::optional<Sent> sent;
    sent.swap(slot->sent);
    detail::Function<void(const Sent &, std::error_code)> function;
    std::swap(function, slot->function);
    if (sent) {
      function(*sent, make_error_code(result));
    }
  }
  template <typename Visitor>
  static bool onFoundDevice(oxa_device_h device, void *user_data) {
    const DeviceView view(device);
    Visitor &visit = *static_cast<Visitor *>(user_data);
    if constexpr (std::is_void_v<std::invoke_result_t<Visitor &, const DeviceView &>>) {
      std::invoke(visit, view);
      return true;
    } else {
      return std::invoke(visit, view);
    }
  }

  oxa_service_h handle_;
};

}  // namespace oxa

namespace std {
template <>
struct is_error_code_enum<oxa::errc> : true_type {};
}  // namespace std

#endif  // OXA_HPP
