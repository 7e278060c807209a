#include "core/debug_callbacks.h"

#include <qvx/debug_output.h>

#include <atomic>
#include <memory>

namespace qvx::core {
namespace {

using Record = tagDBGOUTPUTCALLBACK;

// Before any constructor has run these already tell that there is nothing to do.
constinit std::atomic<bool> callbacks_usable{false};
// As the table's count, for a look without the lock.
constinit std::atomic<int> callback_count{0};

const void* KeyOf(DbgOutputCallback fn) {
  return reinterpret_cast<const void*>(fn);
}

Record* RecordAt(int index) {
  return static_cast<Record*>(const_cast<void*>(CallbackTable().GetAt(index)));
}

int HasKey(const void* entry, const void* key) {
  const auto* record = static_cast<const Record*>(entry);
  return record != nullptr && KeyOf(record->fn) == key ? 1 : 0;
}

int IndexOf(DbgOutputCallback fn) {
  return CallbackTable().FindFirst(KeyOf(fn), &HasKey);
}

bool Usable() {
  return callbacks_usable.load(std::memory_order_acquire);
}

// With the lock held, after every change of the table.
void Recount() {
  callback_count.store(CallbackTable().GetCount(), std::memory_order_release);
}

void Add(DbgOutputCallback fn, void* context) {
  const int index = IndexOf(fn);
  if (index >= 0) {
    RecordAt(index)->context = context;
    return;
  }
  auto record = std::make_unique<Record>(Record{fn, context});
  CallbackTable().AddData(record.get(), -1);
  record.release();
  Recount();
}

void Delete(int index) {
  const std::unique_ptr<Record> record(RecordAt(index));
  CallbackTable().DeleteAt(index, 1);
  Recount();
}

void Call(const Record* record, int level, const char* line, int length) {
  if (record != nullptr && record->fn != nullptr) record->fn(record->context, level, line, length);
}

}  // namespace

void SetCallbacksUsable(bool usable) noexcept {
  callbacks_usable.store(usable, std::memory_order_release);
}

bool HasDebugCallbacks() noexcept {
  return Usable() && callback_count.load(std::memory_order_acquire) != 0;
}

void RunDebugCallbacks(int level, const char* line, int length) {
  if (!HasDebugCallbacks()) return;
  const CAutoBaseLock guard(&CallbackLock());
  const int count = CallbackTable().GetCount();
  for (int i = 0; i < count && i < CallbackTable().GetCount(); ++i) {
    Call(RecordAt(i), level, line, length);
  }
}

}  // namespace qvx::core

using namespace qvx::core;

void DbgOutputAddCallback(DbgOutputCallback fn, void* context) {
  if (fn == nullptr || !Usable()) return;
  const CAutoBaseLock guard(&CallbackLock());
  Add(fn, context);
}

void DbgOutputDelCallback(DbgOutputCallback fn) {
  if (!Usable()) return;
  const CAutoBaseLock guard(&CallbackLock());
  const int index = IndexOf(fn);
  if (index >= 0) Delete(index);
}

void DbgOutputDelAllCallback() {
  if (!Usable()) return;
  const CAutoBaseLock guard(&CallbackLock());
  while (CallbackTable().GetCount() > 0) Delete(CallbackTable().GetCount() - 1);
}
