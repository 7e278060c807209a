// load LIBRARY: prints the nanoseconds that loading the library and leaving it again took.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto start = std::chrono::steady_clock::now();
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  dlclose(library);
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
  std::printf("%.0f\n", taken.count());
  return 0;
}
