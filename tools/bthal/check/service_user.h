// Who the service will be: a user, and what the kernel lets it do besides.
#pragma once

#include <linux/capability.h>

#include <string>

namespace bthal::tool {

// Goes on as `user`, with those capabilities that a unit of ours gives the service as that user. Only root can, and
// only before there are threads. False, with a line for `error`, where that cannot be.
bool BecomeServiceUser(const std::string& user, std::string* error);

// Whether the service would have the capability if this user started it.
bool ServiceHas(int capability);

// How to give it that: one way for all three, because each setcap replaces the one before.
std::string HowToGrant();

// "root, with CAP_NET_ADMIN, CAP_SYS_NICE": this user, and which of the three that the service can use.
std::string ServiceUserWords();

// The user as whom an installed unit runs the service; empty without one.
std::string UnitsUser();

}  // namespace bthal::tool
