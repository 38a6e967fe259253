// Replays every file of the corpus folders named on the command line through the fuzz
// target, so that inputs found by fuzzing stay covered by the normal test suite.

#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> list_files(const std::string& folder) {
  std::vector<std::string> files;
  if (DIR* dir = opendir(folder.c_str())) {
    while (dirent* entry = readdir(dir)) {
      if (entry->d_name[0] != '.') files.push_back(folder + "/" + entry->d_name);
    }
    closedir(dir);
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::string& path : list_files(argv[i])) {
      std::ifstream in(path, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++replayed;
    }
  }
  // An empty input must be handled too.
  LLVMFuzzerTestOneInput(nullptr, 0);
  std::printf("replayed %zu corpus files\n", replayed);
  return replayed > 0 ? 0 : 1;
}
