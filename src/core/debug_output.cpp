#include <qvx/debug_output.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "core/converted_text.h"
#include "core/debug_callbacks.h"
#include "core/printf_engine.h"
#include "platform/clock.h"
#include "platform/debug_sink.h"

using qvx::core::ConvertedText;
using qvx::core::FormattedText;

namespace {

// The tag text, in words that may be read while another thread writes them. The last byte is
// always the terminator.
class Tag {
 public:
  static constexpr std::size_t kSize = 128;

  // The text at load fits the first word.
  constexpr explicit Tag(const char (&text)[9]) : words_{Word(text)} {}

  void Store(const char* text) {
    char bytes[kSize] = {};
    if (text != nullptr) std::memcpy(bytes, text, strnlen(text, kSize - 1));
    for (std::size_t i = 0; i < kWords; ++i) {
      std::uint64_t word;
      std::memcpy(&word, bytes + i * sizeof(word), sizeof(word));
      words_[i].store(word, std::memory_order_relaxed);
    }
  }

  void Load(char* text) const {
    for (std::size_t i = 0; i < kWords; ++i) {
      const std::uint64_t word = words_[i].load(std::memory_order_relaxed);
      std::memcpy(text + i * sizeof(word), &word, sizeof(word));
    }
  }

 private:
  static constexpr std::size_t kWords = kSize / sizeof(std::uint64_t);

  static constexpr std::uint64_t Word(const char* bytes) {
    std::uint64_t word = 0;
    for (int i = 7; i >= 0; --i) word = word << 8 | static_cast<unsigned char>(bytes[i]);
    return word;
  }

  std::atomic<std::uint64_t> words_[kWords];
};

// Lines may be logged before any constructor has run, so that nothing here has one.
constinit std::atomic<int> tag_enabled{1};
constinit Tag tag("QVXM_LOG");
constinit std::atomic<int> display_type{0};
constinit std::atomic<int> time_type{0};
constinit std::atomic<int> ids_enabled{1};

// What stands before the message.
class Prefix {
 public:
  explicit Prefix(int level) {
    if (tag_enabled.load(std::memory_order_relaxed) != 0) AddTag();
    AddTime(time_type.load(std::memory_order_relaxed));
    if (ids_enabled.load(std::memory_order_relaxed) != 0) AddIds();
    const char letter = level >= 0 && level <= 4 ? " DIWE"[level] : '?';
    Add("[%c]=> ", letter);
  }

  std::string_view Text() const { return {text_, length_}; }

 private:
  void Add(const char* format, ...) QVX_PRINTF(2, 3) {
    va_list values;
    va_start(values, format);
    const int count = std::vsnprintf(text_ + length_, sizeof(text_) - length_, format, values);
    va_end(values);
    length_ += static_cast<std::size_t>(count);
  }

  void AddTag() {
    char text[Tag::kSize];
    tag.Load(text);
    Add("%s ", text);
  }

  void AddTime(int type) {
    if (type == 2) return;
    const SYSTEMTIME now = qvx::platform::LocalTimeNow();
    if (type == 1) Add("%04d/%02d/%02d ", now.wYear, now.wMonth, now.wDay);
    if (type != 0 && type != 1) return;
    Add("%02d:%02d:%02d.%03d ", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
  }

  void AddIds() {
    Add("(pid:%5d, lwp:%5d) ", static_cast<int>(qvx::platform::CurrentProcessId()),
        static_cast<int>(qvx::platform::CurrentThreadId()));
  }

  char text_[256];  // the longest takes 127 + 1, 24, 41 and 7 characters
  std::size_t length_ = 0;
};

// Where nobody would see the line, none is built.
bool IsSeen() {
  const int type = display_type.load(std::memory_order_relaxed);
  return type == 1 || (type == 0 && qvx::platform::HasDebugOutput()) ||
         qvx::core::HasDebugCallbacks();
}

void WriteToSink(int level, std::string_view line) {
  const int type = display_type.load(std::memory_order_relaxed);
  if (type == 0) qvx::platform::WriteDebugOutput(level, line);
  if (type == 1) std::fwrite(line.data(), 1, line.size(), stdout);
}

void Emit(int level, const char* message) {
  const int error = errno;
  const Prefix prefix(level);
  const std::string_view head = prefix.Text();
  const std::size_t size = std::strlen(message);
  const std::unique_ptr<char[]> line(new char[head.size() + size + 1]);
  std::memcpy(line.get(), head.data(), head.size());
  std::memcpy(line.get() + head.size(), message, size + 1);
  const std::string_view text(line.get(), head.size() + size);
  WriteToSink(level, text);
  qvx::core::RunDebugCallbacks(level, text.data(), static_cast<int>(text.size()));
  errno = error;
}

}  // namespace

void DbgOutputA(int level, const char* format, ...) {
  if (!IsSeen()) return;
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<char> message(format, arguments);
  va_end(arguments);
  Emit(level, message.Text());
}

void DbgOutputW(int level, const WCHAR* format, ...) {
  if (!IsSeen()) return;
  va_list arguments;
  va_start(arguments, format);
  const FormattedText<WCHAR> message(format, arguments);
  va_end(arguments);
  Emit(level, ConvertedText<char>(message.Text(), message.Length()).Text());
}

void DbgOutputSetTag(int enable, const char* tagText) {
  tag_enabled.store(enable, std::memory_order_relaxed);
  tag.Store(tagText);
}

void DbgOutputSetDisplayType(int type) {
  display_type.store(type, std::memory_order_relaxed);
}

void DbgOutputSetTimeType(int type) {
  time_type.store(type, std::memory_order_relaxed);
}

void DbgOutputSetIncludePIDTID(int enable) {
  ids_enabled.store(enable, std::memory_order_relaxed);
}
