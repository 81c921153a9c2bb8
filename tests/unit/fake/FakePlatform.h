#ifndef OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_H_
#define OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_H_

// In-memory stand-in for the platform's RPC port, log and last-result libraries, for unit tests.
//
// libfake_platform.so defines every rpc_port_* function, dlog_print/dlog_vprint and
// get_last_result/set_last_result. Nothing leaves the process: parcels are typed value sequences,
// ports are two fixed tokens (main and callback), and port events fire only when a test calls
// one of the Fire* functions below, on the test's own thread.
//
// Typical use:
//
//   fake::QueueReply({fake::Int32(0), fake::Bool(true), fake::Int32(0)});
//   int result = proxy.GetServiceState(1, state);
//   EXPECT_EQ(fake::SentParcels(), (std::vector<fake::SentParcel>{
//                                      {fake::Port::Main, {fake::Int32(4), fake::Int32(1)}}}));
//   EXPECT_THAT(fake::Faults(), testing::IsEmpty());
//
// Every function here is safe to call from any thread; none is called by the fake while it holds
// its own lock, so callbacks fired from a test may call back into the platform.

#include <dlog.h>
#include <rpc-port.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace fake {

// ---- Typed parcel values -------------------------------------------------------------------

// One value as written with (or to be read by) the rpc_port_parcel_write_*/read_* of its kind.
// NullString is a string that reads as a null pointer (result 0), which the agent must never send.
enum class Kind { Byte, Int16, Int32, Int64, Float, Double, String, NullString, Bool, Count };

struct Value {
  Kind kind = Kind::Int32;
  long long integer = 0;  // Byte, Int16, Int32, Int64, Bool (0/1), Count
  double real = 0;        // Float, Double
  std::string text;       // String
};

using Values = std::vector<Value>;

Value Byte(char value);
Value Int16(short value);
Value Int32(int value);
Value Int64(long long value);
Value Float(float value);
Value Double(double value);
Value String(const std::string &value);
Value NullString();
Value Bool(bool value);
Value Count(int value);  // rpc_port_parcel_write_array_count / read_array_count

// Appends Count(size) and one Byte per element: the wire form of a byte array.
void AppendBytes(Values &values, const std::vector<unsigned char> &bytes);

bool operator==(const Value &left, const Value &right);
bool operator!=(const Value &left, const Value &right);
// Prints e.g. Int32(7), String("abc"), Bool(false), Byte(0x41), Count(3); gtest uses it.
std::ostream &operator<<(std::ostream &out, const Value &value);
const char *KindName(Kind kind);

// ---- Ports and sent parcels -----------------------------------------------------------------

enum class Port { Main, Callback, Other };
std::ostream &operator<<(std::ostream &out, Port port);

// The handles the fake hands out for the two ports of a connected proxy.
rpc_port_h MainPort();
rpc_port_h CallbackPort();

struct SentParcel {
  Port port = Port::Other;
  Values values;
  int result = 0;  // what rpc_port_parcel_send returned (scripted with SetResult(Call::Send, ...))
};
// Compares port and values (not result), so tests can list what went out on which port.
bool operator==(const SentParcel &left, const SentParcel &right);
std::ostream &operator<<(std::ostream &out, const SentParcel &parcel);

// Every rpc_port_parcel_send call, in order (including failed ones, with their result).
std::vector<SentParcel> SentParcels();
// Stops (false) or restarts (true) recording sent parcels; benchmarks turn it off. Default on.
void SetRecordSentParcels(bool record);

// ---- Scripted input ------------------------------------------------------------------------

// Parcels served FIFO by rpc_port_parcel_create_from_port on the main port. An empty queue makes
// create_from_port fail with -5 (as a read timeout would).
void QueueReply(const Values &values);
// Parcels served FIFO by rpc_port_parcel_create_from_port on the callback port (-5 when empty).
void QueueCallback(const Values &values);
// When set, every create_from_port on that port with an empty queue serves a copy of `values`
// (for benchmarks that make the same call or dispatch the same event many times).
void SetRepeatedReply(const Values &values);
void ClearRepeatedReply();
void SetRepeatedCallback(const Values &values);
void ClearRepeatedCallback();
size_t PendingReplies();
size_t PendingCallbacks();

// Platform calls whose result a test can script.
enum class Call {
  ProxyCreate,     // rpc_port_proxy_create
  ParcelCreate,    // rpc_port_parcel_create
  Connect,         // rpc_port_proxy_connect
  ConnectSync,     // rpc_port_proxy_connect_sync
  Send,            // rpc_port_parcel_send
  CreateFromPort,  // rpc_port_parcel_create_from_port (either port)
  GetPort,         // rpc_port_proxy_get_port
};
enum class Mode {
  Once,    // the next call returns `result`; several Once results are used in order
  Sticky,  // every call returns `result` once the Once results are used up
};
// A non-zero result makes the call fail without effect (no handle, no parcel served or sent;
// a failed send is still listed by SentParcels with its result).
void SetResult(Call call, int result, Mode mode = Mode::Sticky);

// ---- Faults ----------------------------------------------------------------------------------

// Misuse seen by the fake: a read of another kind than the next value, a read past the end of a
// parcel, or an unknown/already destroyed parcel or proxy handle. A mismatched or out-of-range
// read behaves as the platform does (-5 and 0/false/empty string); a mismatched read consumes
// the value. Tests assert EXPECT_THAT(fake::Faults(), IsEmpty()) to catch wrong decode order.
std::vector<std::string> Faults();

// ---- Parcels ---------------------------------------------------------------------------------

// Parcels created (by create or create_from_port) and not yet destroyed.
size_t LiveParcels();
size_t ParcelsCreated();

// ---- Proxies and port events -----------------------------------------------------------------

struct ConnectCall {
  bool sync = false;
  std::string appId;
  std::string portName;
};
bool operator==(const ConnectCall &left, const ConnectCall &right);
std::ostream &operator<<(std::ostream &out, const ConnectCall &call);

int ProxiesCreated();    // successful rpc_port_proxy_create calls
int ProxiesDestroyed();  // rpc_port_proxy_destroy calls on live handles
std::vector<ConnectCall> ConnectCalls();
// The port types asked for with rpc_port_proxy_get_port, in order.
std::vector<rpc_port_port_type_e> GetPortCalls();

// The events fire on the most recently created proxy that is still alive, with its registered
// callback and user data; receiver is the connected app id, port name the connected port name.
// Each returns false (doing nothing) when there is no such proxy or no callback registered.
bool FireConnected();  // passes MainPort()
bool FireDisconnected();
bool FireRejected(int lastResult);        // sets the calling thread's last result first
bool FireReceived();                      // serves the next QueueCallback parcel when read
bool FireReceived(const Values &values);  // QueueCallback(values), then FireReceived()

// ---- Log -------------------------------------------------------------------------------------

struct LogLine {
  log_priority level = DLOG_UNKNOWN;
  std::string tag;
  std::string format;   // the raw format string
  std::string message;  // the fully formatted message
};
bool operator==(const LogLine &left, const LogLine &right);
std::ostream &operator<<(std::ostream &out, const LogLine &line);

// Every dlog_print/dlog_vprint call, in order, whatever its level.
std::vector<LogLine> Logs();

// ---- Reset -----------------------------------------------------------------------------------

// Forgets everything: recorded values, queues, results, faults, logs, counters; frees live
// parcels and proxy handles; the last result of the calling thread becomes 0.
void Reset();

}  // namespace fake

#endif  // OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_H_
