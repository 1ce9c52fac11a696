// A local socket server for one client at a time.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace android::hardware::bluetooth::hci {

enum class SocketMode : int {
  kStream = SOCK_STREAM,     // frames as 0x40, length (2 bytes, host order), payload
  kPacket = SOCK_SEQPACKET,  // one message a frame
};

// Only printed in error lines.
enum class SocketDirection : int { kSend = 0, kReceive = 1 };

// Owns the listening socket and the accepted client's. Not locked: its owner serialises the use of the client socket.
class SocketProcessor {
 public:
  // Receives each frame from the client, on the thread that calls Recv; valid during the call.
  using PacketCallback = std::function<void(const std::vector<uint8_t>&)>;

  SocketProcessor(SocketMode mode, std::string path, int backlog, PacketCallback packet_cb);
  SocketProcessor(const SocketProcessor&) = delete;
  SocketProcessor& operator=(const SocketProcessor&) = delete;
  ~SocketProcessor();

  // Creates, binds (replacing an old socket file; group "system" where it exists, mode 0664) and listens.
  bool OpenServer();
  void CloseServer();
  void CloseClient();

  void SetClientSocket(int fd);  // takes ownership
  void SetSocketMode(SocketMode mode);
  int GetServerSocket() const { return server_socket_; }
  int GetClientSocket() const { return client_socket_; }

  // Sends one frame without blocking. False when it could not be sent whole: a full buffer drops the frame (counted).
  bool Send(const std::vector<uint8_t>& frame);
  // Receives one frame (packet mode) or the next piece of one (stream mode). False: drop the client.
  bool Recv();

  uint64_t DroppedFrames() const { return dropped_frames_; }

 private:
  bool CreateSocket();
  bool BindSocket();
  bool ListenForClients();
  bool RecvPacket();
  bool RecvStream();
  bool RecvStreamWithFixLength(size_t length);
  void PrintSocketErr(ssize_t result, SocketDirection direction) const;

  uint32_t recv_state_ = 0;
  SocketMode socket_mode_;
  uint16_t payload_size_ = 0;
  std::vector<uint8_t> recv_buffer_;
  std::vector<uint8_t> fixed_buffer_;
  int server_socket_ = -1;
  int client_socket_ = -1;
  std::string socket_path_;
  PacketCallback packet_cb_;
  int backlog_;
  uint64_t dropped_frames_ = 0;
};

}  // namespace android::hardware::bluetooth::hci
