#include <iostream>

#include "tools/confctl/command_line.h"

namespace {

using namespace confctl;

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

int main(int argc, char** argv) {
  try {
    const auto line = readCommandLine(argc, argv);
    return line ? run(*line) : 0;
  } catch (const Failure& failure) {
    return report(nullptr, failure);
  } catch (const std::exception& error) {
    return report(nullptr, {Exit::failed, error.what()});
  }
}
