// What hostile peers do to the service, one round at a time.
#pragma once

#include <random>
#include <span>
#include <string>

namespace bthal::campaign {

struct Attack {
  const char* name;
  // On the device root `root`. Whether it has met the service at all.
  bool (*strike)(const std::string& root, std::mt19937_64& random);
};

std::span<const Attack> Attacks();

}  // namespace bthal::campaign
