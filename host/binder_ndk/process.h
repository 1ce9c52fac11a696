// What this process has of Binder: its connections, threads and services.
#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "connection/connection.h"
#include "death.h"
#include "service_list.h"
#include "socket.h"
#include "thread_pool.h"

namespace bthal::binder {

// One thread watches for hang-ups and new connections, and sends on what a peer did not take at once, whatever the
// others do. Hang-ups come first, and who wants to know of them is told before a new connection is taken: a client that
// died and came back finds its old self gone. (But after a while newcomers are let in although a recipient has not
// returned.)
//
// A connection that there is stays until its peer ends or misbehaves: newcomers are turned away, not it. Never
// destroyed; a forked child gets one of its own.
class Process {
 public:
  static Process& Get();

  ThreadPool& pool() { return pool_; }
  ServiceList& services() { return services_; }

  // The connection to the process that listens at socket `name`, made if there is none; null when nobody listens, or
  // its process belongs to somebody else.
  std::shared_ptr<Connection> ConnectTo(const std::string& name);
  // Takes the connections that come to `socket`. Once.
  void Listen(android::base::unique_fd socket);
  std::shared_ptr<Connection> FindConnection(uint64_t id);
  // Has the connection's OnRoom() called while its socket takes more, or no longer.
  void AwaitRoom(const Connection& connection, Way way, bool wanted);
  // Watches a further socket of the connection, too. False when there is no memory for it.
  bool WatchHangUp(const Connection& connection, Way way);

 private:
  Process();
  static void BeforeFork();
  static void AfterForkInParent();
  static void AfterForkInChild();

  bool WatchSocket(int operation, const Connection& connection, Way way, bool room);
  void WakeWatcher();
  [[noreturn]] void Watch();
  void HandleConnections();
  void Bury(uint64_t id);
  bool MayAccept();
  int AcceptTimeoutMs() const;
  void Accept();
  bool HasPlaceFor(uid_t user);
  void SayTurnedAway(const Peer& peer);
  std::shared_ptr<Connection> AdoptLocked(Sockets sockets);

  ThreadPool pool_;
  ServiceList services_;
  Undertaker undertaker_;
  const android::base::unique_fd watched_;  // an epoll descriptor of all connections
  const android::base::unique_fd wake_;

  std::mutex connect_mutex_;  // held while connecting, so that there is one connection to a process
  std::mutex mutex_;
  android::base::unique_fd listener_;
  bool watching_ = false;
  uint64_t next_id_ = 1;
  std::map<uint64_t, std::shared_ptr<Connection>> connections_;
  std::map<std::string, uint64_t> by_name_;

  // Of the watching thread alone.
  bool telling_ = false;  // deaths are being told since:
  std::chrono::steady_clock::time_point telling_since_;
  unsigned turned_away_ = 0;  // connections, of which nothing has been said before:
  std::chrono::steady_clock::time_point next_said_;
};

}  // namespace bthal::binder
