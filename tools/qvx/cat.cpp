// qvx cat and qvx post: the body of one answer of a web server, on the standard output.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include "command.h"
#include "picture_file.h"
#include "web.h"

namespace qvx::tool {
namespace {

constexpr std::size_t kMostPosted = std::numeric_limits<std::int32_t>::max();

struct CatOptions {
  WebOptions web;
  std::uint64_t from = 0;
  std::uint64_t bytes = std::numeric_limits<std::uint64_t>::max();
};

struct PostOptions {
  WebOptions web;
  std::string data;
};

void Print(const void* data, std::size_t size) {
  if (std::fwrite(data, 1, size, stdout) != size || std::fflush(stdout) != 0)
    throw CommandError("cannot write to the output");
}

void Cat(const CatOptions& options) {
  Web web(options.web);
  const std::uint64_t size = web.Open();
  if (size > 0 && options.from > size)
    throw CommandError("the file ends before, at " + std::to_string(size));
  std::uint64_t left = options.bytes;
  if (left == 0 || (size > 0 && options.from == size)) return;
  bool failed = false;
  web.Stream(
      options.from,
      [&](const unsigned char* data, unsigned int count) {
        const std::size_t wanted = std::min<std::uint64_t>(left, count);
        failed = std::fwrite(data, 1, wanted, stdout) != wanted;
        left -= wanted;
        return !failed && left > 0;
      },
      [] { return false; });
  if (failed) throw CommandError("cannot write to the output");
}

void Post(const PostOptions& options) {
  const std::string text = ReadText(options.data == "-" ? "/dev/stdin" : options.data);
  if (text.size() > kMostPosted) throw CommandError(options.data + " is too large to be posted");
  CBaseBuffer data;
  data.SetBuffer(text.data(), static_cast<unsigned int>(text.size()));
  const Web web(options.web);
  const std::string answer = web.Post(data);
  Print(answer.data(), answer.size());
}

}  // namespace

void AddCatCommand(CLI::App& app) {
  auto options = std::make_shared<CatOptions>();
  CLI::App* command = app.add_subcommand("cat", "Print a file of a web server, or a part of it");
  AddWebOptions(*command, options->web);
  command->add_option("--from", options->from, "First byte to print (0)");
  command->add_option("--bytes", options->bytes, "Most bytes to print (all)");
  command->callback([options] { Cat(*options); });
}

void AddPostCommand(CLI::App& app) {
  auto options = std::make_shared<PostOptions>();
  CLI::App* command = app.add_subcommand("post", "Post a file to a web server, print the answer");
  AddWebOptions(*command, options->web);
  command->add_option("--data", options->data, "File whose bytes are posted (-: the input)")
      ->required();
  command->callback([options] { Post(*options); });
}

}  // namespace qvx::tool
