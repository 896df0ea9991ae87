#include "platform/service.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/looper.h"
#include "platform/src/bus/unix_transport.h"
#include "platform/src/loop/uv_loop.h"
#include "platform/store_file.h"

namespace nv {

namespace fs = std::filesystem;

namespace {
constexpr const char* kStoreDirectory = "/var/lib/confkit";

[[noreturn]] void refuseToStart(const std::string& name, const std::string& why) {
  std::cerr << name << ": " << why << std::endl;
  std::exit(EXIT_FAILURE);
}

bool isWord(std::string_view name) {
  return !name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) &&
         std::all_of(name.begin(), name.end(),
                     [](unsigned char c) { return std::isalnum(c) || c == '-'; });
}

std::string usage(const char* program, const ServiceOptions& options) {
  auto text = "usage: " + std::string(program) + " [--bus DIRECTORY] [--store FILE]";
  for (const auto& [name, option] : options.moreOptions) text += " [" + name + " VALUE]";
  return text;
}

fs::path defaultStoreFile(const ServiceOptions& options) {
  return fs::path(kStoreDirectory) / (options.name + ".db");
}

[[noreturn]] void help(const char* program, const ServiceOptions& options) {
  const auto store = options.storeFile.empty() ? defaultStoreFile(options) : options.storeFile;
  std::cout << usage(program, options) << "\n\n";
  const auto line = [](const std::string& option, const std::string& about,
                       const std::string& value) {
    std::cout << "  " << std::left << std::setw(24) << option << ' ' << about;
    std::cout << (value.empty() ? "\n" : " (" + value + ")\n");
  };
  line("--bus DIRECTORY", "where the sockets of all services are", options.busDirectory.string());
  line("--store FILE", "where the records are kept", store.string());
  for (const auto& [name, option] : options.moreOptions)
    line(name + " VALUE", option.about, *option.value);
  std::cout << std::flush;
  std::exit(EXIT_SUCCESS);
}

/// Whether `option` is one, and now has the value.
bool setOption(const std::string& option, const char* value, ServiceOptions& options) {
  if (option == "--bus")
    options.busDirectory = value;
  else if (option == "--store")
    options.storeFile = value;
  else if (const auto more = options.moreOptions.find(option); more != options.moreOptions.end())
    *more->second.value = value;
  else
    return false;
  return true;
}

void readCommandLine(int argc, char** argv, ServiceOptions& options) {
  for (int i = 1; i < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") help(argv[0], options);
    if (i + 1 == argc || !setOption(option, argv[i + 1], options))
      refuseToStart(options.name, "argument '" + option + "': " + usage(argv[0], options));
  }
}

std::unique_ptr<StoreEngine> openStores(const ServiceOptions& options) {
  auto path = options.storeFile;
  if (path.empty()) path = defaultStoreFile(options);
  std::error_code ignored;
  if (path.has_parent_path()) fs::create_directories(path.parent_path(), ignored);
  std::string error;
  auto engine = openStoreFile(path, &error);
  if (!engine) {
    getLooper()->assemble({});  // gives the address back
    refuseToStart(options.name, error);
  }
  return engine;
}

void stopOn(int signal) {
  struct sigaction action {};
  action.sa_handler = [](int) { getLooper()->stop(); };
  sigaction(signal, &action, nullptr);
}
}  // namespace

Service::Service(int argc, char** argv, ServiceOptions options) {
  if (!isWord(options.name))
    refuseToStart(options.name, "a service's name is a letter, then letters, digits and '-'");
  if (options.address == 0 || options.address >= Transport::kFirstConnection)
    refuseToStart(options.name, "no such address: " + std::to_string(options.address));
  readCommandLine(argc, argv, options);

  auto loop = std::make_unique<UvLoop>();
  auto transport = std::make_unique<UnixTransport>(*loop, options.busDirectory, options.socketMode);
  auto* const looper = getLooper();
  looper->assemble({.loop = std::move(loop),
                    .transport = std::move(transport),
                    .limits = options.limits,
                    .rights = std::move(options.rights)});
  // From when others can see the service it ends in order.
  stopOn(SIGTERM);
  stopOn(SIGINT);
  if (const auto error = looper->listen(options.address, options.name); !error.empty())
    refuseToStart(options.name, error);
  // Last, so that a second instance, which is refused by now, leaves no file of its own.
  looper->useStores(openStores(options));
}

Service::~Service() {
  std::signal(SIGTERM, SIG_DFL);
  std::signal(SIGINT, SIG_DFL);
  getLooper()->assemble({});
}

int Service::run() { return getLooper()->run(); }

}  // namespace nv
