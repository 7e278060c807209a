// Cuts text into fields, and releases the text blocks that functions of the library hand over.
// Any number of threads may call; a container passed in is the caller's.
#pragma once

#include "qvx/ptr_ctrl.h"
#include "qvx/types.h"

extern "C" {

// Copies the text (a negative length: up to its NUL), cuts the copy at every character that
// occurs in separators and adds a pointer to each field, NUL-terminated inside the copy, to
// out. Returns the copy, which the caller releases with Internal_DelArrayA, or
// Internal_DelArrayW, when it has finished with the fields. Null, with out untouched, if text
// or out is null.
//
// skipEmpty non-zero leaves empty fields out. A separator at the very end starts no further
// field, one at the start ends an empty one. With a maxCount above 0 the field that would be
// entry number maxCount of out takes the whole rest; out should be empty at the call.
// After a failed allocation, which raises std::bad_alloc, out holds what it held before.
QVX_API char* DevideStringByCharListA(const char* text, int length, const char* separators,
                                      int separatorCount, int skipEmpty, CPtrCtrl* out,
                                      int maxCount);
QVX_API WCHAR* DevideStringByCharListW(const WCHAR* text, int length, const WCHAR* separators,
                                       int separatorCount, int skipEmpty, CPtrCtrl* out,
                                       int maxCount);

// Release a block that a function of the library handed over; null is allowed. The four do the
// same: the block was made by new[] of characters or bytes.
QVX_API void FreeFormatStringA(void* block);
QVX_API void FreeFormatStringW(void* block);
QVX_API void Internal_DelArrayA(void* block);
QVX_API void Internal_DelArrayW(void* block);

}  // extern "C"
