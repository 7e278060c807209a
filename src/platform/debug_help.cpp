#include "platform/debug_help.h"

#include <link.h>

#include "platform/clock.h"
#include "platform/debug_binding.h"

namespace qvx::platform {
namespace {

int Collect(Dwfl_Module* module, void** user_data, const char*, Dwarf_Addr, void* argument) {
  auto& [binding, modules] =
      *static_cast<std::pair<DebugBinding*, std::vector<DebugModule>>*>(argument);
  *user_data = binding;
  modules.push_back(binding->Describe(module));
  return DWARF_CB_OK;
}

int ReportOne(dl_phdr_info* info, std::size_t, void* argument) {
  const auto& binding = *static_cast<const DebugBinding*>(argument);
  if (info->dlpi_name != nullptr && info->dlpi_name[0] == '/')
    binding.report_elf(binding.session, info->dlpi_name, info->dlpi_name, -1, info->dlpi_addr,
                       false);
  return 0;
}

std::uint64_t LookedUp(std::uint64_t address, bool exact) {
  return exact || address == 0 ? address : address - 1;
}

}  // namespace

DebugHelp::DebugHelp() : binding_(std::make_unique<DebugBinding>()) {}

DebugHelp::~DebugHelp() = default;

// Stays loaded: it keeps data of its own for each thread.
bool DebugHelp::Load(const char* library) {
  binding_->usable =
      binding_->library.Load(library, DynamicLibrary::Unload::kNever) && binding_->BindAll();
  return binding_->usable;
}

bool DebugHelp::IsLoaded() const {
  return binding_->usable;
}

bool DebugHelp::HasLines() const {
  return binding_->source != nullptr && binding_->line_info != nullptr;
}

bool DebugHelp::Open(std::uint32_t process, std::vector<std::string> folders) {
  binding_->process = process;
  binding_->folders = std::move(folders);
  binding_->version(EV_CURRENT);
  binding_->session = binding_->begin(&kModuleCallbacks);
  return binding_->session != nullptr;
}

std::vector<DebugModule> DebugHelp::FindModules() {
  DebugBinding& own = *binding_;
  if (own.session == nullptr) return {};
  own.report_begin(own.session);
  if (own.report_process(own.session, static_cast<pid_t>(own.process)) != 0 &&
      own.process == CurrentProcessId()) {
    dl_iterate_phdr(&ReportOne, &own);
  }
  own.report_end(own.session, nullptr, nullptr);
  std::pair<DebugBinding*, std::vector<DebugModule>> found{&own, {}};
  own.get_modules(own.session, &Collect, &found, 0);
  return std::move(found.second);
}

bool DebugHelp::FindSymbol(std::uint64_t address, bool exact, DebugSymbol* symbol) {
  const std::uint64_t place = LookedUp(address, exact);
  Dwfl_Module* module = binding_->module_at(binding_->session, place);
  if (module == nullptr) return false;
  GElf_Off offset = 0;
  GElf_Sym entry;
  const char* name =
      binding_->address_info(module, place, &offset, &entry, nullptr, nullptr, nullptr);
  if (name == nullptr) return false;
  symbol->name = name;
  symbol->offset = offset + (address - place);
  return true;
}

bool DebugHelp::FindLine(std::uint64_t address, bool exact, DebugLine* line) {
  if (!HasLines()) return false;
  const std::uint64_t place = LookedUp(address, exact);
  Dwfl_Module* module = binding_->module_at(binding_->session, place);
  Dwfl_Line* found = module != nullptr ? binding_->source(module, place) : nullptr;
  if (found == nullptr) return false;
  Dwarf_Addr begin = 0;
  int number = 0;
  const char* file = binding_->line_info(found, &begin, &number, nullptr, nullptr, nullptr);
  if (file == nullptr) return false;
  line->file = file;
  line->line = static_cast<std::uint32_t>(number);
  line->offset = static_cast<std::uint32_t>(address - begin);
  return true;
}

bool DebugHelp::FindModule(std::uint64_t address, DebugModule* module) {
  Dwfl_Module* found = binding_->module_at(binding_->session, address);
  if (found == nullptr) return false;
  *module = binding_->Describe(found);
  module->symbols = binding_->SymbolsOf(found);
  return true;
}

WalkEnd DebugHelp::Walk(std::uint32_t thread, const Registers& registers, WalkSink& sink) {
  DebugBinding& own = *binding_;
  DebugWalk walk{own, registers, sink};
  own.walk = &walk;
  if (!own.attached) {
    own.attached = own.session != nullptr &&
                   own.attach_state(own.session, nullptr, static_cast<pid_t>(own.process),
                                    &kThreadCallbacks, &own);
  }
  const int result = own.attached ? own.thread_frames(own.session, static_cast<pid_t>(thread),
                                                      &OnDebugFrame, &walk)
                                  : -1;
  own.walk = nullptr;
  if (walk.stopped) return WalkEnd::kStopped;
  return result == 0 && !walk.astray ? WalkEnd::kComplete : WalkEnd::kFailed;
}

std::uint32_t DebugHelp::LastError() const {
  return binding_->usable ? static_cast<std::uint32_t>(binding_->error()) : 0;
}

}  // namespace qvx::platform
