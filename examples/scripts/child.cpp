#include "examples/scripts/child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace scripts {
namespace {

constexpr std::size_t kPiece = 16 * 1024;

/// How a program is started: what becomes of descriptors, signals and process group.
class Setup {
 public:
  explicit Setup(int output) {
    posix_spawn_file_actions_init(&files_);
    posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files_, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);

    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~Setup() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&files_);
  }
  Setup(const Setup&) = delete;

  /// The process, 0 and errno when there is none.
  pid_t spawn(const Program& program) const {
    pid_t pid = 0;
    auto words = pointers(program.words), environment = pointers(program.environment);
    errno =
        ::posix_spawn(&pid, words.front(), &files_, &attributes_, words.data(), environment.data());
    return errno == 0 ? pid : 0;
  }

 private:
  static std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (const auto& text : texts) all.push_back(const_cast<char*>(text.c_str()));
    all.push_back(nullptr);
    return all;
  }

  posix_spawn_file_actions_t files_;
  posix_spawnattr_t attributes_;
};

int openProcess(pid_t pid) { return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)); }

std::string error(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

std::unique_ptr<Child> Child::start(const Program& program, Done done, std::string& fault) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return fault = error("no pipe"), nullptr;
  Descriptor output(ends[0]);
  const Descriptor input(ends[1]);
  const auto pid = Setup(input.get()).spawn(program);
  if (pid == 0) return fault = error("cannot be started"), nullptr;
  // Killed and awaited by the destructor from here on.
  std::unique_ptr<Child> child(
      new Child(program, pid, Descriptor(openProcess(pid)), std::move(output), std::move(done)));
  if (child->watch()) return child;
  return fault = "the end of a process cannot be seen here", nullptr;
}

Child::Child(const Program& program, pid_t pid, Descriptor process, Descriptor output, Done done)
    : timeLimit_(program.timeLimit),
      outputLimit_(program.outputLimit),
      pid_(pid),
      process_(std::move(process)),
      output_(std::move(output)),
      done_(std::move(done)) {}

Child::~Child() {
  if (pid_ == 0) return;
  killGroup();
  ::waitpid(pid_, nullptr, 0);
}

bool Child::watch() {
  if (!process_.isOpen()) return false;
  processWatch_ = nv::FdWatch(process_.get(), [this] { ended(); });
  outputWatch_ = nv::FdWatch(output_.get(), [this] { outputCame(); });
  limit_ = nv::Timer(timeLimit_,
                     [this] { cut("it ran longer than " + std::to_string(timeLimit_) + " ms"); });
  return processWatch_.running() && outputWatch_.running();
}

bool Child::takeOutput(unsigned pieces) {
  std::array<char, kPiece> piece;
  for (; pieces > 0 && outcome_.output.size() <= outputLimit_; --pieces) {
    const auto taken = ::read(output_.get(), piece.data(), piece.size());
    if (taken < 0) return errno == EAGAIN || errno == EINTR;
    if (taken == 0) return false;
    outcome_.output.append(piece.data(), static_cast<std::size_t>(taken));
  }
  if (outcome_.output.size() <= outputLimit_) return true;
  outcome_.output.resize(outputLimit_);
  cut("it wrote more than " + std::to_string(outputLimit_) + " bytes");
  return false;
}

void Child::outputCame() {
  if (!takeOutput(1)) outputWatch_.stop();
}

void Child::cut(std::string why) {
  if (outcome_.cut.empty()) outcome_.cut = std::move(why);
  killGroup();
}

/// The group is killed before its first process is awaited: until then no other group can have its
/// number.
void Child::ended() {
  processWatch_.stop();
  limit_.stop();
  killGroup();
  int status = 0;
  ::waitpid(std::exchange(pid_, 0), &status, 0);
  if (outputWatch_.running()) takeOutput(1 + static_cast<unsigned>(outputLimit_ / kPiece));
  outputWatch_.stop();
  if (WIFEXITED(status))
    outcome_.status = WEXITSTATUS(status);
  else if (outcome_.cut.empty())
    outcome_.cut = "it was ended by signal " + std::to_string(WTERMSIG(status));
  const auto done = std::move(done_);
  done(std::move(outcome_));
}

void Child::killGroup() const {
  if (pid_ != 0) ::kill(-pid_, SIGKILL);
}

}  // namespace scripts
