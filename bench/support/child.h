/// A second process of a benchmark.
#pragma once

#include <csignal>
#include <functional>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

/// Runs `body` in a process of its own until it is told to end.
class Child {
 public:
  explicit Child(const std::function<void()>& body) : pid_(fork()) {
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
  }
  ~Child() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

 private:
  pid_t pid_;
};

}  // namespace bench
