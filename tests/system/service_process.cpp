#include "tests/system/service_process.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/commands.h"
#include "tests/support/text_map.h"

namespace nv::testkit {

namespace {
std::vector<std::string> emulatorWords() {
  std::istringstream emulator(CONFKIT_EMULATOR);
  return {std::istream_iterator<std::string>(emulator), {}};
}

std::string outputName() {
  static int made = 0;
  return "output-" + std::to_string(++made);
}
}  // namespace

message command(unsigned code, std::uint32_t id) {
  message msg{{key::command, code}};
  msg.insert_vector(key::route, kAddress);
  if (id != kNoId) msg.insert(key::objectId, id);
  return msg;
}

message addText(std::uint32_t id, const std::string& text) {
  return command(cmd::addObj, id).insert(kText, text);
}

message setText(std::uint32_t id, const std::string& text) {
  return command(cmd::setObj, id).insert(kText, text);
}

unsigned errorCode(const message& reply) {
  unsigned code = 0;
  isError(reply, &code, nullptr);
  return code;
}

ServiceProcess::ServiceProcess(const Place& place, std::filesystem::path storeFile)
    : bus_(place.bus()),
      storeFile_(storeFile.empty() ? place.storeFile() : std::move(storeFile)),
      output_(place.folder() / outputName()) {}

ServiceProcess::ServiceProcess(const Place& place, std::filesystem::path storeFile,
                               std::vector<std::string> program)
    : ServiceProcess(place, std::move(storeFile)) {
  program_ = std::move(program);
}

ServiceProcess::~ServiceProcess() {
  if (pid_ > 0) end(SIGKILL);
  close(firstWords_);
}

void ServiceProcess::limitFiles(std::optional<rlim_t> bytes) {
  fileLimit_ = bytes;
  if (pid_ <= 0) return;
  const rlimit limit{bytes.value_or(RLIM_INFINITY), RLIM_INFINITY};
  EXPECT_EQ(prlimit(pid_, RLIMIT_FSIZE, &limit, nullptr), 0);
}

bool ServiceProcess::start() {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) std::abort();
  pid_ = fork();
  if (pid_ < 0) std::abort();
  if (pid_ == 0) run(ready[1]);
  close(ready[1]);
  char byte = 0;
  close(std::exchange(firstWords_, ready[0]));  // it may say more there
  return read(firstWords_, &byte, 1) == 1;
}

std::vector<std::string> ServiceProcess::commandLine(int readyFd) const {
  auto words = emulatorWords();
  if (program_.empty())
    words.insert(words.end(),
                 {CONFKIT_TEST_SERVICE, std::to_string(readyFd), std::to_string(address_)});
  words.insert(words.end(), program_.begin(), program_.end());
  words.insert(words.end(), {"--bus", bus_.string(), "--store", storeFile_.string()});
  return words;
}

/// The child, up to the service's main.
void ServiceProcess::run(int readyFd) const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int out = open(output_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  fcntl(readyFd, F_SETFD, 0);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{fileLimit_.value_or(RLIM_INFINITY), RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);

  if (!program_.empty()) dup2(readyFd, STDOUT_FILENO);

  auto words = commandLine(readyFd);
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

int ServiceProcess::end(int signal) {
  kill(pid_, signal);
  return wait();
}

int ServiceProcess::wait() {
  int status = 0;
  waitpid(std::exchange(pid_, 0), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ServiceProcess::said() const {
  std::ifstream in(output_);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace nv::testkit
