#include "ratio.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace qvx::bench {
namespace {

// Turns are short, so that few of them are interrupted, and many, so that those don't count.
constexpr double kTurnNanoseconds = 1e6;
constexpr double kPairNanoseconds = 1e9;
constexpr int kFewestTurns = 11;
constexpr int kMostTurns = 401;

std::vector<Pair>& Pairs() {
  static std::vector<Pair> pairs;
  return pairs;
}

std::vector<Figure>& Figures() {
  static std::vector<Figure> figures;
  return figures;
}

std::vector<Rate>& Rates() {
  static std::vector<Rate> rates;
  return rates;
}

// Of one piece of work.
double Nanoseconds(const Work& work, long long times) {
  const auto start = std::chrono::steady_clock::now();
  work(times);
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
  return taken.count() / static_cast<double>(times);
}

// How often the work must be done to fill a turn. The first time may set things up.
long long TimesForATurn(const Work& work) {
  work(1);
  long long times = 1;
  while (Nanoseconds(work, times) * static_cast<double>(times) < kTurnNanoseconds / 2) times *= 2;
  return times;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

bool MeasurePair(const Pair& pair) {
  const long long our_times = TimesForATurn(pair.ours);
  const long long peer_times = TimesForATurn(pair.peer);
  std::vector<double> ours;
  std::vector<double> peer;
  std::vector<double> ratios;
  const double both = Nanoseconds(pair.ours, our_times) * static_cast<double>(our_times) +
                      Nanoseconds(pair.peer, peer_times) * static_cast<double>(peer_times);
  const int turns =
      static_cast<int>(std::clamp<double>(kPairNanoseconds / both, kFewestTurns, kMostTurns));
  for (int turn = 0; turn < turns; ++turn) {
    const bool ours_first = turn % 2 == 0;
    if (ours_first) ours.push_back(Nanoseconds(pair.ours, our_times));
    peer.push_back(Nanoseconds(pair.peer, peer_times));
    if (!ours_first) ours.push_back(Nanoseconds(pair.ours, our_times));
    ratios.push_back(ours.back() / peer.back());
  }
  const double ratio = Median(ratios);
  const bool kept = ratio <= pair.bound;
  std::printf("%-28s %12.1f %12.1f %8.3f %8.3f  %s\n", pair.name, Median(ours), Median(peer), ratio,
              pair.bound, kept ? "ok" : "MISSED");
  std::fflush(stdout);
  return kept;
}

bool MeasureFigure(const Figure& figure) {
  const double nanoseconds = figure.measure();
  const bool kept = nanoseconds <= figure.bound;
  std::printf("%-28s %12.1f %12s %8s %8.0f  %s\n", figure.name, nanoseconds, "-", "-", figure.bound,
              kept ? "ok" : "MISSED");
  return kept;
}

void MeasureRate(const Rate& rate) {
  const long long times = TimesForATurn(rate.work);
  std::vector<double> turns(kFewestTurns);
  for (double& turn : turns) turn = Nanoseconds(rate.work, times);
  const double nanoseconds = Median(turns);
  std::printf("%-28s %12.1f %12.1f %s/s\n", rate.name, nanoseconds, rate.items * 1e9 / nanoseconds,
              rate.unit);
}

bool Chosen(const char* name, const std::vector<std::string>& prefixes) {
  return prefixes.empty() ||
         std::any_of(prefixes.begin(), prefixes.end(), [name](const std::string& prefix) {
           return std::string_view(name).substr(0, prefix.size()) == prefix;
         });
}

void RegisterCase(const std::string& name, const Work& work) {
  benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) {
    while (state.KeepRunningBatch(64)) work(64);
  });
}

int RunTable(const std::vector<std::string>& prefixes) {
  std::printf("%-28s %12s %12s %8s %8s\n", "one piece of work", "ours ns", "peer ns", "ratio",
              "bound");
  bool kept = true;
  for (const Pair& pair : Pairs()) {
    if (Chosen(pair.name, prefixes)) kept &= MeasurePair(pair);
  }
  for (const Figure& figure : Figures()) {
    if (Chosen(figure.name, prefixes)) kept &= MeasureFigure(figure);
  }
  for (const Rate& rate : Rates()) {
    if (Chosen(rate.name, prefixes)) MeasureRate(rate);
  }
  return kept ? 0 : 1;
}

}  // namespace

bool AddPair(Pair pair) {
  Pairs().push_back(std::move(pair));
  return true;
}

bool AddFigure(Figure figure) {
  Figures().push_back(std::move(figure));
  return true;
}

bool AddRate(Rate rate) {
  Rates().push_back(std::move(rate));
  return true;
}

int Main(int argc, char** argv) {
  const bool cases = std::any_of(argv + 1, argv + argc, [](const char* argument) {
    return std::strncmp(argument, "--benchmark_", 12) == 0;
  });
  benchmark::Initialize(&argc, argv);
  const int result = RunTable(std::vector<std::string>(argv + 1, argv + argc));
  if (!cases) return result;
  for (const Pair& pair : Pairs()) {
    RegisterCase(std::string(pair.name) + "/ours", pair.ours);
    RegisterCase(std::string(pair.name) + "/peer", pair.peer);
  }
  benchmark::RunSpecifiedBenchmarks();
  return result;
}

}  // namespace qvx::bench

int main(int argc, char** argv) {
  return qvx::bench::Main(argc, argv);
}
