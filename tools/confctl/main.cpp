#include <iostream>

#include "tools/confctl/command_line.h"

namespace confctl {
namespace {

int report(Printer* printer, const Failure& failure) {
  if (printer != nullptr) printer->failure(failure);
  std::cerr << "confctl: " << failure.text << std::endl;
  return static_cast<int>(failure.status);
}

int run(const CommandLine& line) {
  const auto printer = line.json ? makeJsonPrinter(std::cout) : makeTextPrinter(std::cout);
  try {
    Session session(line.bus);
    line.run({session, *printer});
    if (!std::cout.flush()) throw Failure{Exit::failed, "cannot write the output"};
    return static_cast<int>(Exit::done);
  } catch (const Failure& failure) {
    return report(printer.get(), failure);
  }
}

}  // namespace
}  // namespace confctl

int main(int argc, char** argv) {
  try {
    const auto line = confctl::readCommandLine(argc, argv);
    return line ? confctl::run(*line) : 0;
  } catch (const confctl::Failure& failure) {
    return confctl::report(nullptr, failure);
  } catch (const std::exception& error) {
    return confctl::report(nullptr, {confctl::Exit::failed, error.what()});
  }
}
