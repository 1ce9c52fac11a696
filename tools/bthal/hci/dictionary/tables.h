// The dictionary's text: what HCI's packets are called and what is in them. Whoever adds a command, an event, a code or
// a type adds a line here; everything else reads it.
//
// A line that begins with a blank continues the one above it; '#' begins a comment line.
//
// Commands and events:
//   CODE Name Of It [(other_name)...] [> parameters] [< return parameters] [~ Name Of An Event]
// A command's code is its opcode; an event's is its event code, behind slashes the first parameters where they choose
// what follows (0x3E/0x02 is an LE sub-event; the line of 0x3E says what to do with all others). On a command line the
// name is written in lower case with underscores. A Command Complete carries a status and then what stands behind '<';
// a command with '~' is answered by a Command Status, and that event comes when it is done.
//
// A parameter:
//   name[:type][(least..most)][*unit][@count | ^mask][=default][! | !!][?]
// Without a type, the name is the type's too. '*0.625ms' is the worth of one step. '@count' takes as many bytes, or
// elements, as the earlier parameter of that name says, '^mask' one element for each bit set in it, '@' alone all that
// are left; elements are written 'name@count{ parameters }'. '!' shows it in a packet's one line, '!!' without its
// name.
// '?' may be missing at the packet's end.
//
// Base types: u8 to u64 (decimal) and x8 to x64 (hex), little-endian; i8 to i32, signed; addr; hexN and textN, N bytes
// as they are (where counted, so many of the N are in use); hex, text, counted or to the end; ad, adN, advertising
// data.
//
// Types:
//   name type[ bits][: code words, code words...]
// With "bits" a code is the number of a bit. A type made of another has that one's words behind its own.
#pragma once

namespace bthal::tool {

extern const char kStatusCodes[];
extern const char kTypes[];

extern const char kLinkControl[];
extern const char kLinkPolicy[];
extern const char kBaseband[];
extern const char kInformational[];
extern const char kLeCommands[];
extern const char kLeExtendedCommands[];
extern const char kVendorCommands[];

extern const char kEvents[];
extern const char kLeEvents[];
extern const char kVendorEvents[];

}  // namespace bthal::tool
