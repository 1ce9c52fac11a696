// A local socket server for one client at a time.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace android::hardware::bluetooth::hci {

enum class SocketMode : int {
  kStream = SOCK_STREAM,     // frames as 0x40, length (2 bytes, host order), payload
  kPacket = SOCK_SEQPACKET,  // one message a frame
};

// Only printed in error lines.
enum class SocketDirection : int { kSend = 0, kReceive = 1 };

// Owns the listening socket, its file and the accepted client's socket. Not locked: its owner serialises the use of the
// client socket. Everything is close-on-exec.
class SocketProcessor {
 public:
  // Receives each frame from the client, on the thread that calls Recv; valid during the call.
  using PacketCallback = std::function<void(const std::vector<uint8_t>&)>;

  SocketProcessor(SocketMode mode, std::string path, int backlog, PacketCallback packet_cb);
  SocketProcessor(const SocketProcessor&) = delete;
  SocketProcessor& operator=(const SocketProcessor&) = delete;
  ~SocketProcessor();

  // Creates, binds (replacing an old socket file; group "system" where it exists, mode 0664) and listens. The path is
  // below the device root and may be longer than a socket address holds.
  bool OpenServer();
  void CloseServer();  // and removes the socket file
  void CloseClient();

  void SetClientSocket(int fd);  // takes ownership
  void SetSocketMode(SocketMode mode);
  int GetServerSocket() const { return server_socket_.get(); }
  int GetClientSocket() const { return client_socket_.get(); }

  // Ends the conversation without letting go of the socket: whoever is in Recv, or comes to it, sees the end. For the
  // thread that does not receive.
  void ShutdownClient();

  // Sends one frame without blocking. False when it could not be sent whole: a full buffer drops the frame (counted).
  // In stream mode a frame that went out in part also ends the conversation, since the client could not find the next
  // one.
  bool Send(const std::vector<uint8_t>& frame);
  // Receives one frame (packet mode; one of more than 8192 bytes is dropped, counted and logged) or the next piece of
  // one (stream mode, where it waits for the piece to be complete). False: drop the client.
  bool Recv();

  // Frames of this process that came to nothing, in either direction. Any thread.
  static uint64_t DroppedFrames() { return dropped_frames_; }
  static void CountDroppedFrame() { ++dropped_frames_; }

 private:
  bool CreateSocket();
  bool BindSocket();
  bool BindToPath(const std::string& path);
  bool ListenForClients();
  bool RecvPacket();
  static void RefuseLargeFrame(size_t size);
  bool RecvStream();
  bool RecvStreamWithFixLength(size_t length);
  ssize_t SendPacket(const std::vector<uint8_t>& frame);
  ssize_t SendStream(const std::vector<uint8_t>& frame);
  void PrintSocketErr(ssize_t result, SocketDirection direction) const;

  enum class RecvState : uint32_t { kHeader = 0, kLength = 1, kPayload = 2 };

  RecvState recv_state_ = RecvState::kHeader;
  SocketMode socket_mode_;
  uint16_t payload_size_ = 0;
  std::vector<uint8_t> recv_buffer_;
  std::vector<uint8_t> fixed_buffer_;
  ::android::base::unique_fd server_socket_;
  ::android::base::unique_fd client_socket_;
  std::string socket_path_;
  bool bound_ = false;  // the socket file is ours to remove
  PacketCallback packet_cb_;
  int backlog_;
  inline static std::atomic<uint64_t> dropped_frames_{0};
};

}  // namespace android::hardware::bluetooth::hci
