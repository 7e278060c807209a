// The commands that work on names and folders of a server: ls, rm, mkdir, mv, md5 and size.
// The service answers most of their requests without telling how they went, so they look
// before and after.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "remote.h"
#include "text.h"
#include "words.h"

namespace qvx::tool {
namespace {

struct Options {
  RemoteOptions remote;
  std::string source;
  std::string target;
  bool with_sizes = false;
  bool recursive = false;
};

using Action = std::function<void(Remote&, const Options&)>;
using PathAction = std::function<void(Remote&, const Options&, const std::string&)>;

// A command with a server and an action on the connection.
CLI::App* AddCommand(CLI::App& app, const char* name, const char* what,
                     const std::shared_ptr<Options>& options, const Action& action) {
  CLI::App* command = app.add_subcommand(name, what);
  AddRemoteOptions(*command, options->remote);
  command->callback([options, action] {
    Remote remote(options->remote);
    action(remote, *options);
  });
  return command;
}

// The same with an action on each of one or more paths.
CLI::App* AddPathsCommand(CLI::App& app, const char* name, const char* what, const char* which,
                          const std::shared_ptr<Options>& options, const PathAction& action) {
  CLI::App* command = app.add_subcommand(name, what);
  AddRemoteOptions(*command, options->remote);
  const Words words(*command, "PATH", which);
  command->callback([options, words, action] {
    const std::vector<std::string> paths = words.Paths();
    Remote remote(options->remote);
    for (const std::string& path : paths) action(remote, *options, path);
  });
  return command;
}

EntryKind AskExisting(Remote& remote, const std::string& native) {
  const EntryKind kind = remote.Ask(remote.Path(native));
  if (kind == EntryKind::kNone) throw CommandError("no such file or folder: " + native);
  return kind;
}

void PrintFile(Remote& remote, const std::u16string& folder, const std::u16string& name,
               bool with_sizes) {
  std::uint64_t size = 0;
  if (!with_sizes) {
    std::printf("%s\n", NativePath(name).c_str());
  } else if (remote.Size(folder + u"\\" + name, size)) {
    std::printf("%15llu  %s\n", static_cast<unsigned long long>(size), NativePath(name).c_str());
  } else {
    std::printf("%15s  %s\n", "-", NativePath(name).c_str());
  }
}

void List(Remote& remote, const Options& options) {
  const std::string native = options.source.empty() ? "/" : options.source;
  const std::u16string path = remote.Path(native);
  const Listing listing = remote.List(path);
  if (listing.folders.empty() && listing.files.empty() &&
      AskExisting(remote, native) == EntryKind::kFile) {
    PrintFile(remote, ParentOf(path), NameOf(path), options.with_sizes);
    return;
  }
  for (const std::u16string& name : listing.folders)
    std::printf("%*s%s/\n", options.with_sizes ? 17 : 0, "", NativePath(name).c_str());
  for (const std::u16string& name : listing.files)
    PrintFile(remote, path, name, options.with_sizes);
}

void RemoveOne(Remote& remote, const Options& options, const std::string& native) {
  const std::u16string path = remote.Path(native);
  if (AskExisting(remote, native) == EntryKind::kFile) {
    remote.Client().DeleteFileW(path.c_str());
    remote.RequireConnection();
    if (remote.Ask(path) != EntryKind::kNone)
      throw CommandError("the server did not remove " + native);
    return;
  }
  if (!options.recursive) throw CommandError(native + " is a folder; --recursive empties it");
  const bool answered = remote.Client().RemoveDirectoryW(path.c_str()) == 1;
  remote.RequireConnection();
  if (!answered) throw CommandError("the server has not finished emptying " + native);
  const Listing left = remote.List(path);
  if (!left.folders.empty() || !left.files.empty())
    throw CommandError("the server could not remove all that is in " + native);
}

void MakeFolder(Remote& remote, const Options&, const std::string& native) {
  const std::u16string path = remote.Path(native);
  if (remote.Ask(path) != EntryKind::kNone) throw CommandError("exists already: " + native);
  remote.Client().MakeDirectory(path.c_str());
  remote.RequireConnection();
  const bool hidden = NameOf(path).front() == u'.';
  if (!hidden && remote.Ask(path) != EntryKind::kFolder)
    throw CommandError("the server could not make the folder " + native);
}

void Move(Remote& remote, const Options& options) {
  const std::string& from = options.source;
  std::string to = options.target;
  const EntryKind kind = AskExisting(remote, from);
  if (remote.Ask(remote.Path(to)) == EntryKind::kFolder) to = JoinNative(to, BaseName(from));
  if (remote.Ask(remote.Path(to)) != EntryKind::kNone) throw CommandError("exists already: " + to);
  remote.Client().RenameFile(remote.Path(from).c_str(), remote.Path(to).c_str());
  remote.RequireConnection();
  const bool hidden_folder = kind == EntryKind::kFolder && NameOf(remote.Path(to)).front() == u'.';
  if (remote.Ask(remote.Path(from)) != EntryKind::kNone ||
      (!hidden_folder && remote.Ask(remote.Path(to)) != kind))
    throw CommandError("the server could not move " + from + " to " + to);
}

void PrintDigest(Remote& remote, const Options&, const std::string& native) {
  std::printf("%s  %s\n", remote.Digest(remote.Path(native)).c_str(), native.c_str());
}

void PrintSize(Remote& remote, const Options&, const std::string& native) {
  std::uint64_t size = 0;
  if (!remote.Size(remote.Path(native), size))
    throw CommandError("no such file on the server: " + native);
  std::printf("%llu  %s\n", static_cast<unsigned long long>(size), native.c_str());
}

}  // namespace

void AddListCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(app, "ls", "List a folder of a server", options, &List);
  command->add_option("PATH", options->source, "Folder or file; the root if left out");
  command->add_flag("-l", options->with_sizes, "With the sizes of the files");
}

void AddRemoveCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddPathsCommand(app, "rm", "Remove files of a server, or all that folders hold",
                      "What to remove", options, &RemoveOne);
  command->add_flag("-r,--recursive", options->recursive,
                    "Remove all that a folder holds; the folder itself stays");
}

void AddMakeFolderCommand(CLI::App& app) {
  AddPathsCommand(app, "mkdir", "Make folders on a server", "Folder to make",
                  std::make_shared<Options>(), &MakeFolder);
}

void AddMoveCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, "mv", "Move or rename a file or folder on a server", options, &Move);
  command->add_option("FROM", options->source, "What to move")->required();
  command->add_option("TO", options->target, "New path, or a folder to move into")->required();
}

void AddDigestCommand(CLI::App& app) {
  AddPathsCommand(app, "md5", "Print the MD5 of files of a server", "Files to digest",
                  std::make_shared<Options>(), &PrintDigest);
}

void AddSizeCommand(CLI::App& app) {
  AddPathsCommand(app, "size", "Print the size in bytes of files of a server", "Files to measure",
                  std::make_shared<Options>(), &PrintSize);
}

}  // namespace qvx::tool
