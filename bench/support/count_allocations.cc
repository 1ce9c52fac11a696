// Preloaded into a program, counts what it allocates: the file named by BTHAL_COUNT_ALLOCATIONS holds the number, as 8
// bytes in the machine's order. Without that variable nothing is counted.
#include <fcntl.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
}

namespace {

std::atomic<uint64_t> g_nobody{0};
std::atomic<std::atomic<uint64_t>*> g_count{&g_nobody};

[[gnu::constructor]] void Open() {
  const char* path = getenv("BTHAL_COUNT_ALLOCATIONS");
  const int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  void* memory = mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (memory != MAP_FAILED) g_count = static_cast<std::atomic<uint64_t>*>(memory);
}

void Count() { g_count.load(std::memory_order_relaxed)->fetch_add(1, std::memory_order_relaxed); }

}  // namespace

extern "C" {

void* malloc(size_t size) {
  Count();
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  Count();
  return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  Count();
  return __libc_realloc(memory, size);
}

}  // extern "C"
