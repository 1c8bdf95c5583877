// Replays the inputs kept for a fuzz target when the build has no libFuzzer:
// each argument is a file or a folder of files, each file one input. Every
// kept input is so a regression test run by `make test`.

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool ReadFile(const std::string& path, std::vector<uint8_t>* out) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  out->clear();
  uint8_t buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out->insert(out->end(), buf, buf + n);
  std::fclose(f);
  return true;
}

int RunPath(const std::string& path, int* count) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    std::fprintf(stderr, "replay: cannot open %s\n", path.c_str());
    return 1;
  }
  if (S_ISDIR(st.st_mode)) {
    DIR* d = opendir(path.c_str());
    if (!d) return 1;
    std::vector<std::string> names;
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(d);
    int rc = 0;
    for (const std::string& name : names) rc |= RunPath(path + "/" + name, count);
    return rc;
  }
  std::vector<uint8_t> data;
  if (!ReadFile(path, &data)) return 1;
  LLVMFuzzerTestOneInput(data.empty() ? nullptr : data.data(), data.size());
  ++*count;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  int rc = 0;
  // Always run the empty input once, so a target without a corpus still runs.
  LLVMFuzzerTestOneInput(nullptr, 0);
  for (int i = 1; i < argc; ++i) {
    struct stat st;
    if (stat(argv[i], &st) != 0) continue;  // a target may have no corpus yet
    rc |= RunPath(argv[i], &count);
  }
  std::printf("replayed %d inputs\n", count);
  return rc;
}
