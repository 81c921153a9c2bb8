#ifndef OXA_SRC_AGENT_PROXY_H_
#define OXA_SRC_AGENT_PROXY_H_

#include <rpc-port.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DelegateIndex.h"
#include "ShortLock.h"
#include "Text.h"

namespace rpc_port::AgentProxy {

// One device as the agent reports it; fields in wire order.
struct DeviceRecord {
  Oxa::Capi::Text address;
  int type = 0;
  Oxa::Capi::Text name;
};

// One command on the wire; fields in wire order (id before type).
struct CommandRecord {
  Oxa::Capi::Text address;
  int handlerId = 0;
  int id = 0;
  int type = 0;
  std::vector<unsigned char> payload;
  int seqId = 0;
};

namespace proxy {

// Empty on purpose: callers catch the concrete classes; none of them is a std::exception.
class Exception {};
class NotConnectedSocketException : public Exception {};
class InvalidIOException : public Exception {};
class InvalidIDException : public Exception {};
class PermissionDeniedException : public Exception {};
class InvalidProtocolException : public Exception {};

// Thread model: the agent methods may be called from any thread; the port events (and so every
// delegate and listener call) arrive on the thread that runs the platform's event loop. The call
// lock serialises whole request/reply exchanges; `delegatesGuard` is held only to look up, add or
// remove a delegate, never across I/O or a delegate's call.
class OxaAgentInterface : public std::enable_shared_from_this<OxaAgentInterface> {
 public:
  class IEventListener {
   public:
    virtual void OnConnected() = 0;
    virtual void OnDisconnected() = 0;
    virtual void OnRejected() = 0;
  };

  class CallbackBase {
   public:
    CallbackBase(int delegateId, bool once);
    virtual ~CallbackBase() = default;

    int GetId() const { return id_; }
    int GetSeqId() const { return seqId_; }
    bool IsOnce() const { return once_; }
    std::string GetTag() const;

    static void WriteDelegate(rpc_port_parcel_h parcel, const CallbackBase &delegate);
    static void ReadDelegate(rpc_port_parcel_h parcel, int &id, int &seqId, bool &once);

   protected:
    virtual void OnParcelReceived(rpc_port_parcel_h parcel) = 0;

   private:
    friend class OxaAgentInterface;

    int id_;
    int seqId_;
    bool once_;
    // Calls of this delegate in progress; guarded by the owning proxy's delegatesGuard.
    int dispatchDepth_ = 0;
  };

  class OnServiceRegisteredEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(int /*result*/) {}

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnServiceStateChangedEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(bool /*state*/) {}

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnCommandSentEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(int /*result*/, const CommandRecord & /*command*/) {}

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnCommandReceivedEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(const CommandRecord & /*command*/) {}
    // The decoder's own record, which an override may take apart; by default handed on as above.
    virtual void OnReceived(CommandRecord &&command) {
      OnReceived(static_cast<const CommandRecord &>(command));
    }

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnDeviceFoundEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(const DeviceRecord & /*device*/) {}
    // The decoder's own record, which an override may take apart; by default handed on as above.
    virtual void OnReceived(DeviceRecord &&device) {
      OnReceived(static_cast<const DeviceRecord &>(device));
    }

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnDeviceLostEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(const DeviceRecord & /*device*/) {}
    // The decoder's own record, which an override may take apart; by default handed on as above.
    virtual void OnReceived(DeviceRecord &&device) {
      OnReceived(static_cast<const DeviceRecord &>(device));
    }

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  class OnContextChangedEvent : public CallbackBase {
   public:
    using CallbackBase::CallbackBase;
    virtual void OnReceived(const DeviceRecord & /*device*/) {}
    // The decoder's own record, which an override may take apart; by default handed on as above.
    virtual void OnReceived(DeviceRecord &&device) {
      OnReceived(static_cast<const DeviceRecord &>(device));
    }

   protected:
    void OnParcelReceived(rpc_port_parcel_h parcel) override;
  };

  OxaAgentInterface(IEventListener *listener, std::string targetAppId);
  virtual ~OxaAgentInterface();
  OxaAgentInterface(const OxaAgentInterface &) = delete;
  OxaAgentInterface &operator=(const OxaAgentInterface &) = delete;

  // A proxy owned through shared pointers: a port event in progress, or a request in flight on
  // another thread, keeps it alive until it is done, whoever drops the last other reference.
  static std::shared_ptr<OxaAgentInterface> Create(IEventListener *listener,
                                                   std::string targetAppId);
  // Stops every later port event from reaching the listener or a delegate; for a proxy that is
  // being replaced while a request or an event may still hold it.
  void Detach();

  void Connect(bool sync);
  // Removes and destroys the first delegate whose tag ("<id>::<seq>") equals `tag`.
  void DisposeCallback(const std::string &tag);

  // Delegates are taken by rvalue reference: the proxy moves them into its list only once it
  // holds its lock, so on an earlier throw the caller still owns its delegate. That holds only
  // for a pointer of the exact event class (e.g. std::unique_ptr<OnDeviceFoundEvent>): a pointer
  // to a derived class is converted into a temporary that takes the delegate at the call.
  void RegisterService(int handlerId, std::unique_ptr<OnServiceRegisteredEvent> &&callback);
  int UnregisterService(int handlerId);
  int GetServiceState(int handlerId, bool &state);
  int RegisterServiceStateChangedEvent(int handlerId,
                                       std::unique_ptr<OnServiceStateChangedEvent> &&callback);
  int UnregisterServiceStateChangedEvent(int handlerId);
  int SendCommand(int handlerId, const CommandRecord &command,
                  std::unique_ptr<OnCommandSentEvent> &&callback);
  int RegisterCommandReceivedEvent(int handlerId,
                                   std::unique_ptr<OnCommandReceivedEvent> &&callback);
  int UnregisterCommandReceivedEvent(int handlerId);
  int RegisterDeviceFoundEvent(int handlerId, std::unique_ptr<OnDeviceFoundEvent> &&callback);
  int UnregisterDeviceFoundEvent(int handlerId);
  int RegisterDeviceLostEvent(int handlerId, std::unique_ptr<OnDeviceLostEvent> &&callback);
  int UnregisterDeviceLostEvent(int handlerId);
  int RegisterContextChangedEvent(int handlerId, std::unique_ptr<OnContextChangedEvent> &&callback);
  int UnregisterContextChangedEvent(int handlerId);
  int StartDiscovery(int handlerId);
  int StopDiscovery(int handlerId);
  int GetFoundDeviceList(int handlerId, std::vector<DeviceRecord> &devices);
  int GetMyDevice(int handlerId, const std::string &address, DeviceRecord &device);
  int GetAdvRawData(const Oxa::Capi::Text &address, std::vector<unsigned char> &data);
  int GetContext(const Oxa::Capi::Text &address, int handlerId, int contextType,
                 std::vector<unsigned char> &data);
  int UpdateContext(int handlerId, int contextType, const std::vector<unsigned char> &data);
  int SetAppId(int appId);
  int Unregister();

 private:
  using DelegateList = std::list<std::unique_ptr<CallbackBase>>;

  struct ParcelDeleter {
    void operator()(rpc_port_parcel_h parcel) const;
  };
  using Parcel = std::unique_ptr<rpc_port_parcel_s, ParcelDeleter>;

  static void OnConnectedCB(const char *endpoint, const char *portName, rpc_port_h port,
                            void *data);
  static void OnDisconnectedCB(const char *endpoint, const char *portName, void *data);
  static void OnRejectedCB(const char *endpoint, const char *portName, void *data);
  static void OnReceivedCB(const char *endpoint, const char *portName, void *data);

  // The call frame shared by every agent method.
  Parcel BeginRequest(const char *method, int methodId);
  Parcel Call(const char *method, Parcel &request);
  template <typename Delegate>
  Parcel CallWithDelegate(const char *method, Parcel &request, std::unique_ptr<Delegate> &delegate);
  Parcel SendRequest(const char *method, Parcel &request,
                     std::unique_lock<std::recursive_mutex> &lock, bool waitForReply);
  Parcel ReadReply(const char *method, Parcel &request,
                   std::unique_lock<std::recursive_mutex> &lock);
  int CallWithHandlerId(const char *method, int methodId, int handlerId);
  template <typename Delegate>
  int RegisterEvent(const char *method, int methodId, int handlerId,
                    std::unique_ptr<Delegate> &delegate);

  // The proxy named by a port event's user data, held for the event, or null when the event
  // must not be handled (the proxy is being destroyed or was detached).
  class EventScope;
  // Ends a delegate's call however it ends (see EndDispatch).
  class DispatchEnd;

  // Every change of `delegates` goes through these, which keep `delegateIndex` in step.
  void AddDelegate(std::unique_ptr<CallbackBase> delegate);
  // Requires delegatesGuard. Returns the delegate for the caller to destroy once it has let go of
  // the guard, or null when a call of it is in progress (that call's end destroys it).
  std::unique_ptr<CallbackBase> UnlinkDelegate(DelegateList::iterator position);
  void ClearDelegates();
  void Dispatch(rpc_port_parcel_h parcel);
  // Ends one call of `delegate` started by Dispatch; returns it when it is to be destroyed now.
  std::unique_ptr<CallbackBase> EndDispatch(CallbackBase *delegate);
  // After a call deadline: the connection is not used again and its loss is reported once.
  void AbandonConnection();
  // Claims the one report of this connection's loss; false when it has been made already.
  bool ClaimDisconnection();
  // Calls `event` of the listener unless the proxy has been detached.
  void NotifyListener(void (IEventListener::*event)());

  std::atomic<rpc_port_h> port{nullptr};
  std::atomic<rpc_port_h> callbackPort{nullptr};
  rpc_port_proxy_h proxyHandle = nullptr;
  std::atomic<IEventListener *> listener;
  std::recursive_mutex mutex;
  std::list<std::unique_ptr<CallbackBase>> delegates;
  std::string targetAppId;
  DelegateIndex<DelegateList::iterator> delegateIndex;
  Oxa::Capi::ShortLock delegatesGuard;
  // Delegates unlinked while a call of theirs was in progress, destroyed when it ends.
  std::vector<std::unique_ptr<CallbackBase>> orphans;
  // Set by Create: events then hold the proxy through a shared pointer.
  bool sharedOwnership = false;
  // Set under the call lock when a call deadline passed: no later call may use the connection.
  std::atomic<bool> abandoned{false};
  // Whether the loss of the current connection has been reported.
  std::atomic<bool> disconnectionReported{false};
};

}  // namespace proxy
}  // namespace rpc_port::AgentProxy

#endif  // OXA_SRC_AGENT_PROXY_H_
