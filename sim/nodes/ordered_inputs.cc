#include "sim/nodes/ordered_inputs.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>

namespace bthal::sim {
namespace {

// The kernel tells of a write a moment after its bytes can be read.
constexpr int kEventMayFollowMs = 1;
constexpr size_t kFourBytes = 4;

bool IsFifo(int fd) {
  struct stat info {};
  return fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
}

}  // namespace

bool OrderedInputs::Open(std::string* error) {
  order_.Reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  polled_ = {order_.get()};
  if (order_.ok()) return true;
  *error = std::string("cannot watch the order of writes: ") + strerror(errno) +
           "; raise fs.inotify.max_user_instances if too many programs watch files";
  return false;
}

bool OrderedInputs::Add(int fd, const std::string& path, Framing framing, OnUnit on_unit, std::string* error) {
  // The kernel merges an event into the one before when they are alike. A close in between keeps apart what was written
  // by one who opens the node for each write, as most do.
  const int watch = inotify_add_watch(order_.get(), path.c_str(), IN_MODIFY | IN_CLOSE_WRITE);
  if (watch < 0) {
    *error = "cannot watch " + path + ": " + strerror(errno);
    return false;
  }
  if (!IsFifo(fd)) polled_.push_back(fd);
  sources_.push_back({fd, watch, framing, std::move(on_unit), {}, {}});
  return true;
}

void OrderedInputs::Remove(int fd) {
  const auto gone = std::find_if(sources_.begin(), sources_.end(), [&](const Source& s) { return s.fd == fd; });
  if (gone == sources_.end()) return;
  inotify_rm_watch(order_.get(), gone->watch);
  std::erase(polled_, fd);
  sources_.erase(gone);
}

bool OrderedInputs::SomethingWasWritten() const {
  std::vector<pollfd> polls;
  polls.reserve(polled_.size());
  for (const int fd : polled_) polls.push_back({fd, POLLIN, 0});
  return poll(polls.data(), polls.size(), 0) != 0;
}

void OrderedInputs::Drain() {
  if (!SomethingWasWritten()) return;
  for (;;) {
    // In this order, so that what an event tells of has been read by the time the event is looked at.
    ReadOrder();
    for (Source& source : sources_) ReadSource(source);
    pollfd more{order_.get(), POLLIN, 0};
    if (SomeUnitIsAhead() && poll(&more, 1, kEventMayFollowMs) > 0) continue;
    HandOver();
    return;
  }
}

void OrderedInputs::ReadOrder() {
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t count = TEMP_FAILURE_RETRY(read(order_.get(), buffer, sizeof(buffer)));
    if (count <= 0) return;
    for (ssize_t at = 0; at < count;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      if ((event->mask & IN_MODIFY) != 0) events_.push_back(event->wd);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
}

void OrderedInputs::ReadSource(Source& source) {
  uint8_t buffer[1024];
  for (;;) {
    const ssize_t count = TEMP_FAILURE_RETRY(read(source.fd, buffer, sizeof(buffer)));
    if (count <= 0) break;
    source.rest.insert(source.rest.end(), buffer, buffer + count);
  }
  Cut(source);
}

void OrderedInputs::Cut(Source& source) {
  Bytes& rest = source.rest;
  switch (source.framing) {
    case Framing::kCharacter:
      for (const uint8_t byte : rest) {
        if (byte != '\n') source.units.push_back({byte});
      }
      rest.clear();
      return;
    case Framing::kLine:
      // A writer need not end its line; a write is never torn, so what is there is whole.
      for (auto line = rest.begin(); line != rest.end();) {
        const auto end = std::find(line, rest.end(), '\n');
        if (end != line) source.units.emplace_back(line, end);
        line = end == rest.end() ? end : end + 1;
      }
      rest.clear();
      return;
    case Framing::kFourBytes:
      while (rest.size() >= kFourBytes) {
        source.units.emplace_back(rest.begin(), rest.begin() + kFourBytes);
        rest.erase(rest.begin(), rest.begin() + kFourBytes);
      }
      return;
  }
}

size_t OrderedInputs::EventsOf(const Source& source) const {
  return static_cast<size_t>(std::count(events_.begin(), events_.end(), source.watch));
}

bool OrderedInputs::SomeUnitIsAhead() const {
  return std::any_of(sources_.begin(), sources_.end(),
                     [&](const Source& source) { return source.units.size() > EventsOf(source); });
}

// One event stands for one unit, or for several when the kernel merged writes that followed one another directly: then
// the units in excess belong to the first event.
void OrderedInputs::HandOver() {
  std::vector<std::pair<OnUnit, Bytes>> ordered;
  auto take = [&](Source& source) {
    ordered.emplace_back(source.on_unit, std::move(source.units.front()));
    source.units.pop_front();
  };
  while (!events_.empty()) {
    const int watch = events_.front();
    events_.pop_front();
    const auto source =
        std::find_if(sources_.begin(), sources_.end(), [&](const Source& s) { return s.watch == watch; });
    if (source == sources_.end() || source->units.empty()) continue;
    take(*source);
    while (source->units.size() > EventsOf(*source)) take(*source);
  }
  for (Source& source : sources_) {
    while (!source.units.empty()) take(source);
  }
  // Last, for what is called may add and remove sources.
  for (const auto& [on_unit, unit] : ordered) on_unit(unit);
}

}  // namespace bthal::sim
