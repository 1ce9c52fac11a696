// The one connection between this process and another.
#pragma once

#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "connection/message_reader.h"
#include "connection/outbox.h"
#include "connection/wire.h"
#include "death.h"
#include "parcel.h"

struct AIBinder;

namespace bthal::binder {

class Connection;
class RemoteObject;

// A message with its objects found.
struct Incoming {
  Header header;
  ParcelPtr parcel;
  ndk::SpAIBinder target;  // of a call; null for the list of services
  android::base::unique_fd descriptor;
};

// A call of the peer that any thread may serve; without one, its calls in order, which one thread serves.
struct Job {
  std::shared_ptr<Connection> connection;
  std::optional<Incoming> call;

  void Run();
};

// Calls in order that are made together.
struct CallRun {
  std::vector<uint8_t> messages;  // end to end, as they travel, but for their calls' numbers
  std::vector<size_t> starts;     // of each message
  std::vector<std::optional<Incoming>> replies;
  // Under the connection's lock:
  uint64_t last_call = 0;  // 0: not made yet
  bool abandoned = false;
};

// Which of a connection's sockets; of the express ones that for this process's calls, and that for the peer's.
enum class Way { kCalls, kAnswers, kExpressOut, kExpressIn };
inline constexpr Way kAllWays[] = {Way::kCalls, Way::kAnswers, Way::kExpressOut, Way::kExpressIn};
constexpr size_t At(Way way) { return static_cast<size_t>(way); }
constexpr Way AtPeer(Way way) {
  if (way == Way::kExpressOut) return Way::kExpressIn;
  return way == Way::kExpressIn ? Way::kExpressOut : way;
}
using Sockets = std::array<android::base::unique_fd, std::size(kAllWays)>;  // each at its way

// Who reads: a thread of the pool the calls; the thread that stays with the connection, if one does, the peer's express
// calls; a thread that waits for an answer the answers. So none wakes another. Of several threads that wait one reads
// and gives the others what is theirs. A call from the peer that is made on behalf of a call that waits here comes with
// the answers, and is served by the thread that waits. Calls in order are served by one thread at a time, which sends
// their answers together.
//
// Who writes: the sender of a message, as far as the peer takes it at once; the process's watching thread sends the
// rest. No thread waits for a peer to read, unless for the answer to a call of its own.
//
// Any thread. While a socket is read or foreign code runs, no lock is held.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `id` tells the connections of the process apart. The side that has connected brings all sockets, and has Introduce
  // called; on the other side there is that for the calls, until the peer's first messages bring the others.
  Connection(uint64_t id, Sockets sockets);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  uint64_t id() const { return id_; }
  // -1 as long as the peer has not brought it.
  int fd(Way way = Way::kCalls) const { return lanes_[At(way)].fd.load(); }
  // False from the moment that anybody found the peer gone.
  bool alive() const { return alive_.load(); }
  // The same, and asks the kernel: of a process that has ended, the notice may be on its way.
  bool HasPeer() const;

  // Gives the peer its ends of the sockets, but for the calls' one. Before anything else is sent.
  void Introduce(const Sockets& peers_ends);

  // Calls the peer's object `target` and waits for the outcome; `descriptor` -1 for none. On STATUS_OK `*out` is the
  // answer. See AIBinder_transact.
  binder_status_t Call(uint64_t target, int32_t code, AParcel* in, int descriptor, ParcelPtr* out);

  // Adds a call to those of `run`, which are to be made in order. False when it cannot be one of them.
  static bool Add(uint64_t target, int32_t code, const AParcel& in, CallRun* run);
  // Makes the calls of `run` and waits for the outcomes. Those of whom there is no reply, have had none.
  void Call(CallRun* run);
  // None of the calls of `run` is begun by the peer from now on. From any thread, until its Call has returned.
  void Abandon(CallRun* run);

  // Reads the calls that have come, without waiting, unless another thread does, and appends them to `jobs`.
  void OnReadable(std::vector<Job>* jobs);
  // Tells the peer that its express calls are read from now on: by the calling thread, with AwaitExpress until that
  // returns false. Once. False when the peer is gone.
  bool OfferExpress();
  // Waits for express calls and appends them to `jobs`; there may be none after all. False when none will come any
  // more.
  bool AwaitExpress(std::vector<Job>* jobs);
  // Runs a call of the peer and answers it.
  void Serve(Incoming call);
  // Runs the calls in order that have come and answers them.
  void ServeInOrder();

  // The socket takes more of what waits to be sent.
  void OnRoom(Way way);

  // The peer has hung up: nothing is exported from now on. Returns whom to tell, and what the peer had referred to.
  // Once.
  Estate OnHangUp();
  // Ends the connection: the peer sees a hang-up, and this process one soon.
  void Close(const char* why);

  // The last reference to a proxy of the peer's object is gone.
  void Forget(RemoteObject* proxy);

 private:
  struct Lane {
    void Set(android::base::unique_fd fd_of_lane) {
      socket = std::move(fd_of_lane);
      fd = socket.get();
    }

    android::base::unique_fd socket;
    std::atomic<int> fd{-1};  // `socket`, set once
    std::mutex write_mutex;   // guards outbox; not taken with mutex_ held
    Outbox outbox;

    bool reading = false;    // under mutex_
    bool more_came = false;  // while a thread of the pool was reading; under mutex_
    MessageReader reader;    // of the thread that set `reading`, otherwise nobody's
    std::vector<Message> messages;
  };
  // A thread that waits for the answers to one or more calls.
  struct Waiter {
    // `places`: one for each reply, empty.
    explicit Waiter(std::span<std::optional<Incoming>> places) : replies(places), missing(places.size()) {}

    Way way = Way::kCalls;  // of the calls
    uint64_t call = 0;      // the first one's number; the others' follow it
    std::span<std::optional<Incoming>> replies;
    size_t missing;
    std::vector<Incoming> calls;  // made on its behalf
    bool asleep = false;          // waits for another thread that reads
    std::condition_variable wake;
  };
  struct Export {
    ndk::SpAIBinder object;
    uint64_t references;
    uint64_t given_back_before = 0;  // the call next made when the last reference went
  };
  // What a round of reading found. Destroyed without the lock, because objects may go with it.
  struct Harvest {
    std::vector<Job>* jobs;
    std::vector<Incoming> dropped = {};
    std::vector<ndk::SpAIBinder> released = {};
  };
  using Lock = std::unique_lock<std::mutex>;

  Lane& LaneOf(Way way) { return lanes_[At(way)]; }

  // connection.cc: reading, and who gets what
  bool Read(Lock& lock, Way way, bool wait, Harvest* harvest);
  bool Deliver(Way way, Message message, Harvest* harvest);
  bool TakeSocket(android::base::unique_fd socket);
  bool DeliverReply(Incoming* reply);
  bool DeliverCall(Way way, Incoming* call, Harvest* harvest);
  bool DeliverInOrder(Incoming* call, Harvest* harvest);
  bool DeliverRelease(const Header& header, Harvest* harvest);
  Waiter* FindWaiter(uint64_t call);
  void End();
  void ShutDown();

  // call.cc: waiting for answers, and giving them
  bool Enter(Waiter* waiter, uint64_t nested, CallRun* run);
  bool Await(Lock& lock, Waiter* waiter);
  void Leave(Waiter* waiter, std::vector<ndk::SpAIBinder>* released);
  void WakeNextReader();
  binder_status_t Run(const Incoming& call, AParcel* answer);

  // in_order.cc
  bool TakeInOrder(std::vector<Incoming>* calls);
  bool MayBegin(const Incoming& call, bool* skipped);
  void SendAnswers(std::vector<uint8_t>* answers);

  // objects.cc: what the two processes refer to
  binder_status_t MarkObjects(AParcel* parcel);
  uint64_t ExportId(AIBinder* object);
  bool FindObjects(Message* message, Incoming* incoming);
  ndk::SpAIBinder FindObject(const AParcel& at_object);
  void DropGivenBack(std::vector<ndk::SpAIBinder>* released);

  // send.cc
  binder_status_t Send(Way way, Header header, AParcel* parcel, int descriptor);
  binder_status_t Write(Way way, iovec* parts, size_t count, int descriptor, bool awaited);

  const uint64_t id_;
  std::atomic<bool> alive_{true};
  std::array<Lane, std::size(kAllWays)> lanes_;

  std::mutex mutex_;
  bool ended_ = false;   // nothing more is read
  bool buried_ = false;  // OnHangUp was called
  std::vector<Waiter*> waiters_;
  bool peer_stays_ = false;    // a thread of the peer reads the express calls
  bool express_busy_ = false;  // a call that went there is under way
  size_t queued_ = 0;          // calls of the peer that nobody has begun to serve
  size_t queued_bytes_ = 0;
  std::vector<Incoming> in_order_;  // of these, those in order
  bool serving_in_order_ = false;   // a thread of the pool does, or is about to
  uint64_t skipped_to_ = 0;         // calls in order up to here are not begun
  uint64_t next_call_ = 1;
  uint64_t next_export_ = kServiceListId + 1;
  std::map<uint64_t, Export> exports_;
  std::map<const AIBinder*, uint64_t> export_ids_;  // of those that the peer refers to
  size_t given_back_ = 0;                           // exports that it no longer refers to
  std::map<uint64_t, RemoteObject*> proxies_;
};

// The call that the calling thread serves for `connection`, innermost, or 0.
uint64_t ServedCallOf(const Connection* connection);

}  // namespace bthal::binder
