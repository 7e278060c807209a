#include "platform/debug_binding.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace qvx::platform {
namespace {

constexpr std::size_t kMostMemoryImage = 64 * 1024;
// How often a walk may go back towards the top of the stack: once for each alternate stack. A
// chain of frames that leads back to itself does so on every round.
constexpr int kMostStepsBack = 16;

DebugBinding& BindingOf(void** user_data) {
  return *static_cast<DebugBinding*>(*user_data);
}

int FindImage(Dwfl_Module*, void** user_data, const char* name, Dwarf_Addr base, char** found,
              Elf** elf) {
  if (*user_data == nullptr) return -1;
  if (name[0] == '/') return BindingOf(user_data).OpenImage(name, found);
  if (strncmp(name, "[vdso", 5) == 0) *elf = BindingOf(user_data).ImageInMemory(base);
  return -1;
}

int FindDebugFile(Dwfl_Module* module, void** user_data, const char*, Dwarf_Addr, const char* image,
                  const char* link, GElf_Word, char** found) {
  if (*user_data == nullptr) return -1;
  return BindingOf(user_data).OpenDebugFile(module, image, link, found);
}

pid_t NextThread(Dwfl*, void*, void**) {
  return 0;
}

bool TakeThread(Dwfl*, pid_t, void* binding, void** thread) {
  *thread = static_cast<DebugBinding*>(binding)->walk;
  return *thread != nullptr;
}

bool ReadWord(Dwfl*, Dwarf_Addr address, Dwarf_Word* word, void* binding) {
  DebugWalk& walk = *static_cast<DebugBinding*>(binding)->walk;
  std::uint64_t value = 0;
  if (!walk.sink.ReadWord(address, &value)) return false;
  walk.highest_read = std::max<std::uint64_t>(walk.highest_read, address);
  *word = value;
  return true;
}

bool SetRegisters(Dwfl_Thread* thread, void* walk) {
  const auto& now = *static_cast<DebugWalk*>(walk);
  std::array<Dwarf_Word, kRegisterCount> words;
  std::copy(now.registers.begin(), now.registers.end(), words.begin());
  return now.binding.state_registers(thread, 0, kRegisterCount, words.data());
}

std::string Hexadecimal(const unsigned char* bytes, int size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

std::string_view FolderOf(std::string_view path) {
  const std::size_t cut = path.rfind('/');
  return cut == std::string_view::npos ? std::string_view() : path.substr(0, cut);
}

}  // namespace

const Dwfl_Callbacks kModuleCallbacks = {&FindImage, &FindDebugFile, nullptr, nullptr};
const Dwfl_Thread_Callbacks kThreadCallbacks = {&NextThread,   &TakeThread, &ReadWord,
                                                &SetRegisters, nullptr,     nullptr};

DebugBinding::~DebugBinding() {
  if (session != nullptr) end(session);
}

bool DebugBinding::BindAll() {
  library.Bind("dwfl_module_getsrc", &source);
  library.Bind("dwfl_lineinfo", &line_info);
  return library.Bind("dwfl_begin", &begin) && library.Bind("dwfl_end", &end) &&
         library.Bind("dwfl_errno", &error) && library.Bind("dwfl_report_begin", &report_begin) &&
         library.Bind("dwfl_report_end", &report_end) &&
         library.Bind("dwfl_report_elf", &report_elf) &&
         library.Bind("dwfl_linux_proc_report", &report_process) &&
         library.Bind("dwfl_getmodules", &get_modules) &&
         library.Bind("dwfl_module_info", &module_info) &&
         library.Bind("dwfl_module_build_id", &build_id) &&
         library.Bind("dwfl_module_getsymtab", &symbol_table) &&
         library.Bind("dwfl_module_getdwarf", &debug_data) &&
         library.Bind("dwfl_module_addrinfo", &address_info) &&
         library.Bind("dwfl_addrmodule", &module_at) &&
         library.Bind("dwfl_attach_state", &attach_state) &&
         library.Bind("dwfl_getthread_frames", &thread_frames) &&
         library.Bind("dwfl_thread_state_registers", &state_registers) &&
         library.Bind("dwfl_frame_pc", &frame_counter) && library.Bind("elf_version", &version) &&
         library.Bind("elf_memory", &elf_of_memory);
}

DebugModule DebugBinding::Describe(Dwfl_Module* module) const {
  Dwarf_Addr first = 0;
  Dwarf_Addr behind = 0;
  const char* name =
      module_info(module, nullptr, &first, &behind, nullptr, nullptr, nullptr, nullptr);
  DebugModule described;
  described.image = name != nullptr ? name : "";
  described.name = described.image.substr(described.image.rfind('/') + 1);
  described.base = first;
  described.size = behind - first;
  return described;
}

ModuleSymbols DebugBinding::SymbolsOf(Dwfl_Module* module) const {
  Dwarf_Addr bias = 0;
  if (debug_data(module, &bias) != nullptr) return ModuleSymbols::kDebugData;
  return symbol_table(module) > 0 ? ModuleSymbols::kTable : ModuleSymbols::kNone;
}

// As the process sees it: its root may be another one than ours.
int DebugBinding::OpenImage(const char* name, char** found) const {
  return TryFolder("/proc/" + std::to_string(process) + "/root", name + 1, found);
}

int DebugBinding::TryFolder(std::string_view folder, const std::string& name, char** found) const {
  const std::string path = std::string(folder) + "/" + name;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor >= 0) *found = strdup(path.c_str());
  return descriptor;
}

// By the build id in the system's store of debug files, else by the name that the image tells,
// beside it, in its folder .debug, in the store, and in the folders of the caller.
int DebugBinding::OpenDebugFile(Dwfl_Module* module, const char* image, const char* link,
                                char** found) const {
  static constexpr std::string_view kStore = "/usr/lib/debug";
  const unsigned char* id = nullptr;
  GElf_Addr where = 0;
  const int size = build_id(module, &id, &where);
  if (size > 1) {
    const std::string name =
        ".build-id/" + Hexadecimal(id, 1) + "/" + Hexadecimal(id + 1, size - 1) + ".debug";
    const int descriptor = TryFolder(kStore, name, found);
    if (descriptor >= 0) return descriptor;
  }
  if (link == nullptr || image == nullptr || strchr(link, '/') != nullptr) return -1;
  const std::string beside(FolderOf(image));
  std::vector<std::string> places = {beside, beside + "/.debug", std::string(kStore) + beside};
  places.insert(places.end(), folders.begin(), folders.end());
  for (const std::string& place : places) {
    const int descriptor = TryFolder(place, link, found);
    if (descriptor >= 0) return descriptor;
  }
  return -1;
}

// The system's own page of code has no file.
Elf* DebugBinding::ImageInMemory(std::uint64_t base) {
  auto image = std::make_unique<char[]>(kMostMemoryImage);
  const std::size_t size = ReadMemory(process, base, image.get(), kMostMemoryImage);
  if (size == 0) return nullptr;
  Elf* elf = elf_of_memory(image.get(), size);
  if (elf != nullptr) memory_images.push_back(std::move(image));
  return elf;
}

// Whether the frames no longer lead up the stack.
bool DebugWalk::IsAstray() {
  if (highest_read <= former_highest) ++steps_back;
  former_highest = highest_read;
  highest_read = 0;
  return steps_back > kMostStepsBack;
}

int OnDebugFrame(Dwfl_Frame* frame, void* argument) {
  DebugWalk& walk = *static_cast<DebugWalk*>(argument);
  Dwarf_Addr counter = 0;
  bool exact = false;
  if (!walk.binding.frame_counter(frame, &counter, &exact)) return DWARF_CB_ABORT;
  walk.astray = walk.IsAstray();
  walk.stopped = !walk.astray && !walk.sink.OnFrame(counter, exact);
  return walk.astray || walk.stopped ? DWARF_CB_ABORT : DWARF_CB_OK;
}

}  // namespace qvx::platform
