#include <benchmark/benchmark.h>
#include <string.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qvx/digital_text.h"
#include "qvx/ptr_array.h"
#include "qvx/string_split.h"
#include "qvx/text_search.h"
#include "qvx/url_markup.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr double kAsFast = 1.0;
constexpr double kTwice = 1.0 / 2;
constexpr double kThreeTimes = 1.0 / 3;
constexpr double kFiveTimes = 1.0 / 5;

// Made at the first use, so that a run of other benchmarks doesn't wait for it.
template <typename T>
class Lazy {
 public:
  explicit Lazy(std::function<T()> make) : shared_(std::make_shared<Shared>(std::move(make))) {}

  const T& Get() const {
    if (!shared_->value) shared_->value = shared_->make();
    return *shared_->value;
  }

 private:
  struct Shared {
    explicit Shared(std::function<T()> how) : make(std::move(how)) {}
    std::function<T()> make;
    std::optional<T> value;
  };
  std::shared_ptr<Shared> shared_;
};

int Size(const std::string& text) {
  return static_cast<int>(text.size());
}

// Texts ---------------------------------------------------------------------------------------

constexpr std::size_t kSearched = 1 << 20;

// Words of two to ten letters, drawn as often as English uses the letters, with punctuation.
std::string MakeProse(std::size_t size) {
  static constexpr char kLetters[] =
      "eeeeeeeeeeeetttttttttaaaaaaaaoooooooiiiiiiinnnnnnnsssssshhhhhhrrrrrrddddllllcccuuummmwwffggy"
      "y"
      "ppbbvk";
  std::mt19937 random(1);
  std::string text;
  while (text.size() < size) {
    const std::size_t length = 2 + random() % 9;
    for (std::size_t i = 0; i < length; ++i) {
      char letter = kLetters[random() % (sizeof(kLetters) - 1)];
      if (random() % 60 == 0) letter = static_cast<char>(letter - 32);
      text += letter;
    }
    if (random() % 8 == 0) text += ",.;-"[random() % 4];
    text += ' ';
  }
  text.resize(size);
  return text;
}

std::string MakeRandom(std::size_t size) {
  std::mt19937 random(2);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

const std::string& Prose() {
  static const std::string text = MakeProse(kSearched);
  return text;
}

const std::string& RandomBytes() {
  static const std::string text = MakeRandom(kSearched);
  return text;
}

// Search --------------------------------------------------------------------------------------

// A pattern that stands only at the end of the text.
struct Task {
  std::string text;
  std::string pattern;
  std::vector<int> next;
};

using CreateTable = int (*)(int*, const char*, int);

Lazy<Task> MakeTask(const std::string& (*source)(), std::size_t length, CreateTable create) {
  return Lazy<Task>([=] {
    const std::string& text = source();
    Task task{text, text.substr(text.size() / 3, length), std::vector<int>(length)};
    // One character is changed until the rest of the text lacks the pattern.
    while (task.text.find(task.pattern) != text.npos) ++task.pattern[length / 2];
    task.text.replace(text.size() - length, length, task.pattern);
    create(task.next.data(), task.pattern.data(), Size(task.pattern));
    return task;
  });
}

// The peer without case.
const void* PlainFindNoCase(const Task& task) {
  const std::string& text = task.text;
  const std::string& pattern = task.pattern;
  const auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  for (std::size_t i = 0; i + pattern.size() <= text.size(); ++i) {
    std::size_t j = 0;
    while (j < pattern.size() && fold(text[i + j]) == fold(pattern[j])) ++j;
    if (j == pattern.size()) return text.data() + i;
  }
  return nullptr;
}

template <typename Find>
Work Repeat(const Lazy<Task>& task, Find find) {
  return [task, find](long long times) {
    for (long long i = 0; i < times; ++i) {
      const void* hit = find(task.Get());
      if (hit == nullptr) std::abort();
      benchmark::DoNotOptimize(hit);
      benchmark::ClobberMemory();
    }
  };
}

const void* FindByTable(const Task& task) {
  return BufFindPatternA(task.text.data(), Size(task.text), task.pattern.data(), Size(task.pattern),
                         task.next.data());
}

const void* FindNoCase(const Task& task) {
  return BufFindPatternNoCaseA(task.text.data(), Size(task.text), task.pattern.data(),
                               Size(task.pattern), task.next.data());
}

const void* FindInMemory(const Task& task) {
  return MemFindBufA(task.text.data(), Size(task.text), task.pattern.data(), Size(task.pattern));
}

const void* FindByPeer(const Task& task) {
  return memmem(task.text.data(), task.text.size(), task.pattern.data(), task.pattern.size());
}

bool AddSearch(const char* table_name, const char* memory_name, const char* no_case_name,
               const std::string& (*source)(), std::size_t length) {
  const Lazy<Task> exact = MakeTask(source, length, &CreateKMPPatternA);
  const Lazy<Task> folded = MakeTask(source, length, &CreateKMPPatternNoCaseA);
  const Work peer = Repeat(exact, &FindByPeer);
  return AddPair({table_name, kAsFast, Repeat(exact, &FindByTable), peer}) &&
         AddPair({memory_name, kAsFast, Repeat(exact, &FindInMemory), peer}) &&
         AddPair({no_case_name, kFiveTimes, Repeat(folded, &FindNoCase),
                  Repeat(folded, &PlainFindNoCase)});
}

// Fields --------------------------------------------------------------------------------------

// Numbers of one to six digits with commas between them.
std::string MakeNumbers(std::size_t size) {
  std::mt19937 random(3);
  std::string text;
  while (text.size() < size) {
    text += std::to_string(random() % 1000000 >> random() % 16);
    text += ',';
  }
  text.resize(size);
  return text;
}

void SplitOurs(const std::string& text, long long times) {
  for (long long i = 0; i < times; ++i) {
    CPtrArrayCtrl fields;
    char* block = DevideStringByCharListA(text.data(), Size(text), ",", 1, 1, &fields, 0);
    benchmark::DoNotOptimize(fields.GetTail());
    Internal_DelArrayA(block);
  }
}

// As ours: a copy of the text, and a pointer to each field.
void SplitPeer(const std::string& text, long long times) {
  for (long long i = 0; i < times; ++i) {
    const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    std::vector<const void*> fields;
    char* rest = nullptr;
    for (char* field = strtok_r(copy.get(), ",", &rest); field != nullptr;
         field = strtok_r(nullptr, ",", &rest)) {
      fields.push_back(field);
    }
    benchmark::DoNotOptimize(fields.data());
    benchmark::ClobberMemory();
  }
}

void ParseOurs(const std::string& text, long long times) {
  std::vector<int> values(text.size());
  for (long long i = 0; i < times; ++i) {
    ParseDigitalArrayValueA(text.data(), Size(text), 2, values.data(), 0, ",", 1, 0);
    benchmark::ClobberMemory();
  }
}

void ParsePeer(const std::string& text, long long times) {
  std::vector<int> values(text.size());
  for (long long i = 0; i < times; ++i) {
    std::size_t count = 0;
    for (const char* place = text.c_str(); *place != '\0';) {
      char* end = nullptr;
      values[count++] = static_cast<int>(strtol(place, &end, 10));
      place = *end == ',' ? end + 1 : end;
    }
    benchmark::DoNotOptimize(count);
    benchmark::ClobberMemory();
  }
}

// Words and numbers of one to fourteen characters with commas between them.
std::string MakeRecords(std::size_t size) {
  std::string text = MakeProse(size);
  std::mt19937 random(5);
  std::size_t next = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (i == next) {
      text[i] = ',';
      next = i + 2 + random() % 14;
    } else if (text[i] == ',') {
      text[i] = '0';
    }
  }
  return text;
}

bool AddFields() {
  const Lazy<std::string> text([] { return MakeRecords(16 << 20); });
  const Lazy<std::string> numbers([] { return MakeNumbers(64 << 10); });
  return AddPair({"split 16 MiB", kTwice, [text](long long times) { SplitOurs(text.Get(), times); },
                  [text](long long times) { SplitPeer(text.Get(), times); }}) &&
         AddPair({"parse an array of numbers", kAsFast,
                  [numbers](long long times) { ParseOurs(numbers.Get(), times); },
                  [numbers](long long times) { ParsePeer(numbers.Get(), times); }});
}

// URLs ----------------------------------------------------------------------------------------

void EncodePeer(const std::string& text, std::string& out) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  char* end = out.data();
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= 'a' && byte <= 'z') || byte == '.' || byte == '/') {
      *end++ = c;
    } else if (byte == ' ') {
      *end++ = '+';
    } else {
      *end++ = '%';
      *end++ = kDigits[byte >> 4];
      *end++ = kDigits[byte & 15];
    }
  }
  benchmark::DoNotOptimize(end);
}

std::array<signed char, 256> DigitValues() {
  std::array<signed char, 256> values{};
  for (std::size_t i = 0; i < 10; ++i) values['0' + i] = static_cast<signed char>(i);
  for (std::size_t i = 0; i < 6; ++i) {
    values['a' + i] = values['A' + i] = static_cast<signed char>(10 + i);
  }
  return values;
}

void DecodePeer(const std::string& text, std::string& out) {
  static const std::array<signed char, 256> kValues = DigitValues();
  const auto value = [](char c) { return kValues[static_cast<unsigned char>(c)]; };
  char* end = out.data();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      *end++ = static_cast<char>(value(text[i + 1]) * 16 + value(text[i + 2]));
      i += 2;
    } else {
      *end++ = text[i] == '+' ? ' ' : text[i];
    }
  }
  benchmark::DoNotOptimize(end);
}

using OurCode = void (*)(const char*, int, CBaseStringA*);
using PeerCode = void (*)(const std::string&, std::string&);

bool AddCode(const char* name, const Lazy<std::string>& text, OurCode ours, PeerCode peer) {
  return AddPair({name, kThreeTimes,
                  [text, ours](long long times) {
                    for (long long i = 0; i < times; ++i) {
                      CBaseStringA out;
                      ours(text.Get().data(), Size(text.Get()), &out);
                      benchmark::DoNotOptimize(out.GetString());
                      benchmark::ClobberMemory();
                    }
                  },
                  [text, peer](long long times) {
                    std::string out(3 * text.Get().size(), '\0');
                    for (long long i = 0; i < times; ++i) {
                      peer(text.Get(), out);
                      benchmark::ClobberMemory();
                    }
                  }});
}

// Lines of 20 to 60 characters.
std::string MakeChinese(std::size_t size) {
  std::mt19937 random(4);
  std::string text;
  while (text.size() < size) {
    for (std::size_t i = 20 + random() % 41; i > 0; --i) {
      text += static_cast<char>(0xE4 + random() % 6);
      text += static_cast<char>(0x80 + random() % 64);
      text += static_cast<char>(0x80 + random() % 64);
    }
    text += "\r\n";
  }
  return text;
}

// Of the short text the processor learns by heart where the escapes are, of the long one it can't.
constexpr std::size_t kCoded = 64 << 10;
constexpr std::size_t kLongCoded = 1 << 20;

bool AddCodes(const char* encode_name, const char* decode_name, std::string (*make)(std::size_t),
              std::size_t size = kCoded) {
  const Lazy<std::string> text([make, size] { return make(size); });
  const Lazy<std::string> encoded([text] {
    CBaseStringA out;
    EncodeURL(text.Get().data(), Size(text.Get()), &out);
    return std::string(out.GetString());
  });
  return AddCode(encode_name, text, &EncodeURL, &EncodePeer) &&
         AddCode(decode_name, encoded, &DecodeURL, &DecodePeer);
}

const bool kAdded =
    AddSearch("table, text, 4", "memory, text, 4", "no case, text, 4", &Prose, 4) &&
    AddSearch("table, text, 16", "memory, text, 16", "no case, text, 16", &Prose, 16) &&
    AddSearch("table, text, 64", "memory, text, 64", "no case, text, 64", &Prose, 64) &&
    AddSearch("table, random, 4", "memory, random, 4", "no case, random, 4", &RandomBytes, 4) &&
    AddSearch("table, random, 16", "memory, random, 16", "no case, random, 16", &RandomBytes, 16) &&
    AddSearch("table, random, 64", "memory, random, 64", "no case, random, 64", &RandomBytes, 64) &&
    AddFields() && AddCodes("URL of prose", "prose of a URL", &MakeProse) &&
    AddCodes("URL of Chinese", "Chinese of a URL", &MakeChinese) &&
    AddCodes("URL of random bytes", "random bytes of a URL", &MakeRandom) &&
    AddCodes("URL of 1 MiB of random bytes", "1 MiB of random bytes of a URL", &MakeRandom,
             kLongCoded);

}  // namespace
}  // namespace qvx::bench
