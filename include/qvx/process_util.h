// Small services around programs: named values inside a string. Nothing here holds state; any
// number of threads may call. Strings passed in are the caller's.
#pragma once

#include "qvx/base_string.h"
#include "qvx/types.h"

extern "C" {

// Looks up the first entry of a text of entries, "a=1;b=2" with the separator ";", that begins
// with the attribute, with regard to case: "b=", so with its "=". Sets value to what follows and
// returns 1; returns 0 with value untouched if there is none or an argument is null.
QVX_API int GetAttrValueFromConfig(const CBaseStringA* config, const char* separator,
                                   const char* attribute, CBaseStringA* value);

// Gives the entry that the attribute finds another value. The old text of the entry, attribute and
// value, is replaced wherever it stands in the whole text and in any case, inside other entries
// too; a new value that differs in case alone changes nothing. Without such an entry the
// separator, the attribute and the value are appended, also to an empty text. A null argument
// does nothing.
QVX_API void SetAttrValueToConfig(CBaseStringA* config, const char* separator,
                                  const char* attribute, const char* value);

}  // extern "C"
