#include "qvx/ptr_ctrl.h"

#include "containers/ptr_algorithms.h"
#include "qvx/base_buffer.h"
#include "qvx/debug_output.h"

CPtrCtrl::~CPtrCtrl() = default;

std::int64_t GetBufferListLength(CPtrCtrl* list) {
  std::int64_t length = 0;
  if (list == nullptr) return length;
  for (int i = 0; i < list->GetCount(); ++i) {
    const auto* buffer = static_cast<const CBaseBuffer*>(list->GetAt(i));
    if (buffer != nullptr) length += buffer->GetAvailSize();
  }
  return length;
}

namespace qvx::containers {

bool CompareEntries(CPtrCtrl& left, CPtrCtrl* right, Equal equal) {
  if (right == nullptr || left.GetCount() != right->GetCount()) return false;
  for (int i = 0; i < left.GetCount(); ++i) {
    const void* ours = left.GetAt(i);
    const void* theirs = right->GetAt(i);
    if (equal != nullptr ? !equal(ours, theirs) : ours != theirs) return false;
  }
  return true;
}

void LogDumpTitle(bool ascending) {
  DbgOutputA(2, "Dump, %s\r\n", ascending ? "Asce" : "Desc");
}

void LogDumpEntry(const void* entry) {
  DbgOutputA(2, "%llu\r\n",
             static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(entry)));
}

}  // namespace qvx::containers
