// Lets the library fill the table of an array in place.
#pragma once

#include <qvx/ptr_array.h>

#include <cstring>
#include <limits>
#include <new>

namespace qvx::containers {

struct PtrArrayAccess {
  // The array behind a container, or null if it is of another kind.
  static CPtrArrayCtrl* AsArray(CPtrCtrl* container) {
    const bool is_array = std::strcmp(container->GetPtrCtrlName(), "ArrayCtrl") == 0;
    return is_array ? dynamic_cast<CPtrArrayCtrl*>(container) : nullptr;
  }

  // Adds count entries at the end, whose values are for fill to write to the place that it gets.
  // Out of memory the array stays as it was.
  template <typename Fill>
  static void AppendFilled(CPtrArrayCtrl& array, int count, Fill fill) {
    if (count < 1) return;
    if (count > std::numeric_limits<int>::max() - array.mCount) throw std::bad_alloc();
    array.OnSizeChange(array.mCount + count);
    fill(array.mTable + array.mCount);
    array.mCount += count;
    array.UpdateSteady();
  }
};

}  // namespace qvx::containers
