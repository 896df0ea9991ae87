// Runs a fuzz target over files and folders given as arguments, for compilers without libFuzzer.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

unsigned replayAll(const fs::path& path) {
  if (!fs::is_directory(path)) return replay(path), 1;
  unsigned count = 0;
  for (const auto& entry : fs::directory_iterator(path)) {
    replay(entry.path());
    ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned count = 0;
  for (int k = 1; k < argc; ++k) count += replayAll(argv[k]);
  std::printf("%u inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
