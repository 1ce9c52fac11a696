// How two processes talk over their stream sockets: messages end to end, in the machine's byte order.
//
// The one that connects gives the other all sockets but the first one with its first messages. Calls go over the first
// one, and references given back. Answers go over the second one, and the calls that are made on behalf of a call whose
// answer is awaited: so whoever waits for an answer reads all that is meant for it, and nothing else.
//
// The others are the express sockets: one for the calls of each side, the third one for those of who is connected to.
// Once a thread of the other side reads it, and does nothing but serve what comes there, a call that is not made on
// behalf of another may go over it while none that did is under way: so that thread need not read while it serves.
//
//    0  u32 size         of the body, which follows the header
//    4  u16 type         MessageType
//    6  u16 objects      how many binder objects the body's parcel holds
//    8  u64 call         number of a call, chosen by the caller; its reply repeats it. Release: how many references
//   16  u64 target       call, release: the object's id, in the receiver's table; 0 is the receiver's list of services
//   24  u64 nested       call: the receiver's own call on whose behalf this one is made, or 0
//   32  i32 code         call: transaction code; reply: binder_status_t
//   36  u32 flags        kHasDescriptor, kInOrder
//   40  body             the parcel's data, then `objects` times u32: where each object begins in the data, ascending
//
// One descriptor travels with the first byte of a message that is flagged so: the call of a dump, and kConnect.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace bthal::binder {

enum class MessageType : uint16_t {
  kCall = 1,
  kReply = 2,
  kRelease = 3,  // the receiver's object is no longer referred to so many times
  kConnect = 4,  // the first ones of who connects: the second socket, the third, and the fourth
  kSkip = 5,     // among the answers: no call in order with this number or a smaller one is to be begun any more
  kExpress = 6,  // among the answers, once: the sender reads the express socket for the receiver's calls from now on
};

inline constexpr uint32_t kHasDescriptor = 1;
// Of calls that are not nested. The receiver serves these one after the other, and answers each; what it skips, with
// STATUS_INVALID_OPERATION.
inline constexpr uint32_t kInOrder = 2;

struct Header {
  uint32_t size;
  MessageType type;
  uint16_t objects;
  uint64_t call;
  uint64_t target;
  uint64_t nested;
  int32_t code;
  uint32_t flags;
};
static_assert(sizeof(Header) == 40);

// The platform's limit of all that is under way to a process.
inline constexpr size_t kMaxBodyBytes = 1 << 20;
inline constexpr uint16_t kMaxObjects = 64;

// The id of the receiver's list of services.
inline constexpr uint64_t kServiceListId = 0;

// Codes that every object understands, beside those of its class.
constexpr int32_t FourLetters(char a, char b, char c, char d) { return a << 24 | b << 16 | c << 8 | d; }
inline constexpr int32_t kPingCode = FourLetters('_', 'P', 'N', 'G');
inline constexpr int32_t kDumpCode = FourLetters('_', 'D', 'M', 'P');
// The one code of the list of services: a name in, the object or null out.
inline constexpr int32_t kFindServiceCode = 1;

}  // namespace bthal::binder
