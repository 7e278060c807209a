// The array and the list behind one interface: filling, sorting, finding, moving.
#include <qvx/ptr_array.h>
#include <qvx/ptr_list.h>

#include <cstdio>
#include <cstring>

namespace {

const char* const kNames[] = {"lemon", "apple", "melon", "cherry", "plum"};

int CompareNames(void*& left, void*& right) {
  return std::strcmp(static_cast<const char*>(left), static_cast<const char*>(right));
}

int BeginsWith(const void* entry, const void* key) {
  return *static_cast<const char*>(entry) == *static_cast<const char*>(key) ? 1 : 0;
}

// The container holds pointers and owns nothing behind them.
int FillAndSort(CPtrCtrl& names) {
  for (const char* name : kNames) names.AddData(name, -1);
  names.QuickSort(0, -1, &CompareNames);
  std::printf("%s:", names.GetPtrCtrlName());
  for (int i = 0; i < names.GetCount(); ++i)
    std::printf(" %s", static_cast<const char*>(names.GetAt(i)));
  const int found = names.FindFirst("m", &BeginsWith);
  std::printf("; the first with m has index %d\n", found);
  return found;
}

}  // namespace

int main() {
  CPtrArrayCtrl array;
  CPtrListCtrl list;
  if (FillAndSort(array) != 3 || FillAndSort(list) != 3) return 1;
  list.MoveData(0, 1, -1);
  std::printf("after the move the tail is %s\n", static_cast<const char*>(list.GetTail()));
  array.CopyPtrCtrl(&list);
  return array.GetCount() == 5 &&
                 std::strcmp(static_cast<const char*>(array.GetTail()), "apple") == 0
             ? 0
             : 1;
}
