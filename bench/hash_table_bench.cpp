#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qvx/hash_table.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr std::size_t kKeys = 4096;
constexpr std::size_t kKeyLength = 16;

const void* Value(std::size_t number) {
  return reinterpret_cast<const void*>(number + 1);
}

const std::vector<std::uint64_t>& Numbers() {
  static const std::vector<std::uint64_t> numbers = [] {
    std::mt19937_64 random(23);
    std::vector<std::uint64_t> all(kKeys);
    for (std::uint64_t& number : all) number = random();
    return all;
  }();
  return numbers;
}

const std::vector<std::string>& Texts() {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> all;
    all.reserve(kKeys);
    for (const std::uint64_t number : Numbers()) {
      std::string text(kKeyLength, '0');
      for (std::size_t i = 0; i < kKeyLength; ++i) {
        text[i] = "0123456789abcdef"[number >> (4 * i) & 15];
      }
      all.push_back(text);
    }
    return all;
  }();
  return texts;
}

// Made in turns, so that both find their records in a heap of the same shape.
struct Tables {
  Tables() {
    for (std::size_t i = 0; i < kKeys; ++i) {
      numbers.AddData(Numbers()[i], Value(i));
      number_map.emplace(Numbers()[i], Value(i));
      texts.AddData(Texts()[i].data(), kKeyLength, Value(i));
      text_map.emplace(Texts()[i], Value(i));
    }
  }

  CHashTable numbers{kKeys};
  CCRCHashTable texts{kKeys};
  std::unordered_multimap<std::uint64_t, const void*> number_map{kKeys};
  std::unordered_multimap<std::string, const void*> text_map{kKeys};
};

Tables& TheTables() {
  static Tables tables;
  return tables;
}

// One piece of work finds one key; they come in another order than they were added in.
template <typename Find>
Work FindKeys(Find find) {
  return [find](long long times) {
    std::size_t index = 0;
    for (long long i = 0; i < times; ++i) {
      index = (index + 1237) % kKeys;
      benchmark::DoNotOptimize(find(index));
    }
  };
}

const void* FindNumber(std::size_t index) {
  return TheTables().numbers.FindFirstData(Numbers()[index]);
}

const void* FindNumberPeer(std::size_t index) {
  return TheTables().number_map.find(Numbers()[index])->second;
}

const void* FindText(std::size_t index) {
  return TheTables().texts.FindFirstData(Texts()[index].data(), kKeyLength);
}

const void* FindTextPeer(std::size_t index) {
  return TheTables().text_map.find(Texts()[index])->second;
}

// The tables are made first: a first piece of work that makes them would be taken for a slow one.
const bool kAdded =
    TheTables().numbers.GetCount() > 0 &&
    AddPair({"hash table find", 1 / 0.7, FindKeys(&FindNumber), FindKeys(&FindNumberPeer)}) &&
    AddPair({"crc hash table find", 1 / 0.5, FindKeys(&FindText), FindKeys(&FindTextPeer)});

}  // namespace
}  // namespace qvx::bench
