// stack_victim FILE: prints how many microseconds a dump of its own 200 threads to the file takes
// (the median of nine), then waits to be looked at from outside.
#include <qvx/platform.h>
#include <qvx/stack_walker.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

volatile bool sleeping = true;

// A stack of different functions.
template <int Depth>
[[gnu::noinline]] void Sleep() {
  if constexpr (Depth > 0) Sleep<Depth - 1>();
  while (sleeping) pause();
}

double DumpOnce(const WCHAR* file) {
  const auto start = std::chrono::steady_clock::now();
  DumpAllThreadsStack(file);
  const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
  return taken.count();
}

}  // namespace

int main(int, char** arguments) {
  CBaseStringW file;
  NativePathToLibraryW(arguments[1], &file);
  std::vector<std::thread> threads;
  threads.reserve(200);
  for (int i = 0; i < 200; ++i) threads.emplace_back(&Sleep<8>);
  std::array<double, 9> times;
  std::generate(times.begin(), times.end(), [&] { return DumpOnce(file.GetString()); });
  std::nth_element(times.begin(), times.begin() + 4, times.end());
  std::printf("inside %.0f\nready\n", times[4]);
  std::fflush(stdout);
  Sleep<0>();
}
