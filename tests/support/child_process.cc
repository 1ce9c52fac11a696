#include "support/child_process.h"

#include <sys/prctl.h>

namespace bthal::test {

ChildProcess::ChildProcess(const std::function<int()>& body) {
  fflush(nullptr);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ != 0) return;
  // A test that dies takes its processes with it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  _exit(body());
}

ChildProcess::~ChildProcess() { Kill(); }

void ChildProcess::Kill() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  Wait();
}

int ChildProcess::Wait() {
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(pid_, &status, 0)) != pid_) throw std::runtime_error("cannot wait for a process");
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Gate::Gate() {
  if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
}

Gate::~Gate() {
  close(ends_[0]);
  close(ends_[1]);
}

void Gate::Open(char what) const {
  if (TEMP_FAILURE_RETRY(write(ends_[1], &what, 1)) != 1) throw std::runtime_error("cannot write to a pipe");
}

char Gate::Pass() const {
  char what = 0;
  if (TEMP_FAILURE_RETRY(read(ends_[0], &what, 1)) != 1) throw std::runtime_error("a pipe was closed");
  return what;
}

}  // namespace bthal::test
