// The one connection between this process and another.
#pragma once

#include <android-base/unique_fd.h>
#include <android/binder_auto_utils.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "death.h"
#include "message_reader.h"
#include "outbox.h"
#include "parcel.h"
#include "wire.h"

struct AIBinder;

namespace bthal::binder {

class Connection;
class RemoteObject;

// A message with its objects found.
struct Incoming {
  Header header;
  std::unique_ptr<AParcel> parcel;
  ndk::SpAIBinder target;  // of a call; null for the list of services
  android::base::unique_fd descriptor;
};

// A call of the peer that any thread may serve.
struct Job {
  std::shared_ptr<Connection> connection;
  Incoming call;
};

// Who reads: a thread that waits for an answer reads the socket itself, so that the answer needs no hand-over. Of
// several such threads one reads and gives the others what is theirs. While none waits, the thread pool reads. A call
// from the peer that is made on behalf of a call that waits here is served by the thread that waits; any other goes to
// the pool.
//
// Who writes: the sender of a message, as far as the peer takes it at once; the process's watching thread sends the
// rest. No thread waits for a peer to read, unless for the answer to a call of its own.
//
// Any thread. While the socket is read or foreign code runs, no lock is held.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `id` tells the connections of the process apart.
  Connection(uint64_t id, android::base::unique_fd socket) : id_(id), socket_(std::move(socket)) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  uint64_t id() const { return id_; }
  int fd() const { return socket_.get(); }
  // False from the moment that anybody found the peer gone.
  bool alive() const { return alive_.load(); }

  // Calls the peer's object `target` and waits for the outcome; `descriptor` -1 for none. On STATUS_OK `*out` is the
  // answer. See AIBinder_transact.
  binder_status_t Call(uint64_t target, int32_t code, AParcel* in, int descriptor, std::unique_ptr<AParcel>* out);

  // Reads what has come, without waiting, unless another thread does; returns the calls among it that are for the pool.
  std::vector<Job> OnReadable();
  // Runs a call of the peer and answers it.
  void Serve(Incoming call);

  // The socket takes more of what waits to be sent.
  void OnRoom();

  // The peer has hung up: nothing is exported from now on. Returns whom to tell, and what the peer had referred to.
  // Once.
  Estate OnHangUp();
  // Ends the connection: the peer sees a hang-up, and this process one soon.
  void Close(const char* why);

  // The last reference to a proxy of the peer's object is gone.
  void Forget(RemoteObject* proxy);

 private:
  // A thread that waits for an answer.
  struct Waiter {
    uint64_t call = 0;
    bool answered = false;
    std::deque<Incoming> inbox;
    std::condition_variable wake;
    bool entered = false;  // waits, and does not serve a nested call
    bool asleep = false;   // waits for another thread that reads
  };
  struct Export {
    ndk::SpAIBinder object;
    uint64_t references;
  };
  // What a round of reading found. Destroyed without the lock, because objects may go with it.
  struct Harvest {
    std::vector<Job> jobs;
    std::vector<Incoming> dropped;
    std::vector<ndk::SpAIBinder> released;
  };
  using Lock = std::unique_lock<std::mutex>;

  // connection.cc: reading, and who gets what
  bool Read(Lock& lock, bool wait, Harvest* harvest);
  bool Deliver(Message message, Harvest* harvest);
  bool DeliverReply(Incoming* reply);
  bool DeliverCall(Incoming* call, Harvest* harvest);
  bool DeliverRelease(const Header& header, Harvest* harvest);
  Waiter* FindWaiter(uint64_t call);
  void End();

  // connection_call.cc: waiting for answers
  void Enter(Waiter* waiter);
  void Leave(Waiter* waiter);
  void WakeNextReader();
  bool Await(Waiter* waiter, Incoming* reply);

  // connection_objects.cc: what the two processes refer to
  binder_status_t MarkObjects(AParcel* parcel);
  uint64_t ExportId(AIBinder* object);
  bool FindObjects(Message* message, Incoming* incoming);
  ndk::SpAIBinder FindObject(const AParcel& at_object);

  // connection_send.cc
  binder_status_t Send(Header header, AParcel* parcel, int descriptor);
  binder_status_t Write(iovec* parts, size_t count, int descriptor, bool awaited);

  const uint64_t id_;
  const android::base::unique_fd socket_;
  std::atomic<bool> alive_{true};
  std::mutex write_mutex_;  // guards outbox_; not taken with mutex_ held
  Outbox outbox_;

  std::mutex mutex_;
  MessageReader reader_;  // of the thread that set reading_, otherwise nobody's
  bool reading_ = false;
  bool more_came_ = false;  // while a thread of the pool was reading
  bool ended_ = false;      // nothing more is read
  bool buried_ = false;     // OnHangUp was called
  std::vector<Waiter*> waiters_;
  size_t entered_ = 0;  // waiters that have entered
  size_t queued_ = 0;   // calls of the peer that nobody has begun to serve
  size_t queued_bytes_ = 0;
  uint64_t next_call_ = 1;
  uint64_t next_export_ = kServiceListId + 1;
  std::map<uint64_t, Export> exports_;
  std::map<const AIBinder*, uint64_t> export_ids_;
  std::map<uint64_t, RemoteObject*> proxies_;
};

// The call that the calling thread serves for `connection`, innermost, or 0.
uint64_t ServedCallOf(const Connection* connection);

}  // namespace bthal::binder
