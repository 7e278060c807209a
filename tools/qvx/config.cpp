// qvx config: reads and writes one named value of a text file of KEY=VALUE entries, a line each
// or between separators of the user's own. The rest of the file stays as it is, byte for byte.
#include <fcntl.h>
#include <qvx/process_util.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>

#include "command.h"

namespace qvx::tool {
namespace {

struct Options {
  std::string file;
  std::string key;
  std::string value;
  std::string separator = "\n";

  std::string Attribute() const { return key + "="; }
};

[[noreturn]] void Fail(const std::string& what, int error) {
  throw CommandError(what + ": " + std::strerror(error));
}

// The text of the file; nothing where there is no file.
std::string ReadText(const Options& options, bool may_be_absent) {
  errno = 0;
  std::ifstream stream(options.file, std::ios::binary);
  if (!stream && errno == ENOENT && may_be_absent) return {};
  std::error_code error;
  if (std::filesystem::is_directory(options.file, error))
    Fail("cannot read " + options.file, EISDIR);
  if (!stream) Fail("cannot open " + options.file, errno);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (stream.bad()) throw CommandError("cannot read " + options.file);
  if (text.find('\0') != text.npos) throw CommandError("not a text file: " + options.file);
  return text;
}

void CheckKey(const Options& options) {
  if (options.separator.empty()) throw CommandError("the separator is empty");
  const bool is_key = !options.key.empty() && options.key.find('=') == options.key.npos &&
                      options.key.find(options.separator) == options.key.npos;
  if (!is_key) throw CommandError("not a key: " + options.key);
  if (options.value.find(options.separator) != options.value.npos) {
    throw CommandError("the value holds the separator");
  }
}

// Lines may end as on other systems: that is no part of the value.
bool EndsLikeALine(const Options& options, const std::string& value) {
  return options.separator == "\n" && !value.empty() && value.back() == '\r';
}

bool Find(const Options& options, const std::string& text, std::string& value) {
  const CBaseStringA config(text.c_str());
  CBaseStringA found;
  const bool there = GetAttrValueFromConfig(&config, options.separator.c_str(),
                                            options.Attribute().c_str(), &found) != 0;
  if (there) value = found.GetString();
  return there;
}

void Get(const Options& options) {
  CheckKey(options);
  std::string value;
  if (!Find(options, ReadText(options, false), value)) {
    throw CommandError("no " + options.key + " in " + options.file);
  }
  if (EndsLikeALine(options, value)) value.pop_back();
  std::printf("%s\n", value.c_str());
}

// Where the first entry with the key begins.
std::size_t PlaceOf(const Options& options, const std::string& text) {
  const std::string attribute = options.Attribute();
  std::size_t place = 0;
  while (text.compare(place, attribute.size(), attribute) != 0) {
    place = text.find(options.separator, place) + options.separator.size();
  }
  return place;
}

std::string Changed(const Options& options, std::string text) {
  const std::string entry = options.Attribute() + options.value;
  std::string old_value;
  if (Find(options, text, old_value)) {
    const std::size_t length = options.Attribute().size() + old_value.size();
    const std::string end = EndsLikeALine(options, old_value) ? "\r" : "";
    return text.replace(PlaceOf(options, text), length, entry + end);
  }
  const std::string& separator = options.separator;
  const bool is_closed =
      text.size() >= separator.size() &&
      text.compare(text.size() - separator.size(), separator.npos, separator) == 0;
  if (!text.empty() && !is_closed) text += separator;
  text += entry;
  return is_closed || separator == "\n" ? text + separator : text;
}

// A file beside the target that takes its name when it is complete, and goes otherwise.
class Replacement {
 public:
  explicit Replacement(const std::string& target)
      : target_(target), name_(target + ".XXXXXX"), descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {
    if (descriptor_ < 0) Fail("cannot write beside " + target_, errno);
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!done_) unlink(name_.c_str());
  }

  void Write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t count = write(descriptor_, text.data() + done, text.size() - done);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) Fail("cannot write " + target_, errno);
      done += static_cast<std::size_t>(count);
    }
  }

  void Install() {
    struct stat old {};
    const mode_t mode = stat(target_.c_str(), &old) == 0 ? old.st_mode & 07777 : 0644;
    const bool written = fchmod(descriptor_, mode) == 0 && fsync(descriptor_) == 0;
    const int closed = close(descriptor_);
    descriptor_ = -1;
    if (!written || closed != 0 || rename(name_.c_str(), target_.c_str()) != 0) {
      Fail("cannot write " + target_, errno);
    }
    done_ = true;
  }

 private:
  std::string target_;
  std::string name_;
  int descriptor_;
  bool done_ = false;
};

void Set(const Options& options) {
  CheckKey(options);
  const std::string text = ReadText(options, true);
  const std::string changed = Changed(options, text);
  if (changed == text) return;
  // A link stays, and what it leads to is written.
  std::error_code error;
  const std::filesystem::path target = std::filesystem::weakly_canonical(options.file, error);
  Replacement replacement(error ? options.file : target.string());
  replacement.Write(changed);
  replacement.Install();
}

CLI::App* AddAction(CLI::App& config, const char* name, const char* what,
                    const std::shared_ptr<Options>& options) {
  CLI::App* command = config.add_subcommand(name, what);
  command->add_option("FILE", options->file, "Text file of KEY=VALUE entries")->required();
  command->add_option("KEY", options->key, "Name of the value")->required();
  command->add_option("--separator", options->separator, "What stands between entries")
      ->default_str("a line end");
  return command;
}

}  // namespace

void AddConfigCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* config = app.add_subcommand("config", "Read or change a value in a text file");
  config->require_subcommand(1);
  CLI::App* get = AddAction(*config, "get", "Print a value", options);
  get->callback([options] { Get(*options); });
  CLI::App* set = AddAction(*config, "set", "Change or add a value", options);
  set->add_option("VALUE", options->value, "The new value")->required();
  set->callback([options] { Set(*options); });
}

}  // namespace qvx::tool
