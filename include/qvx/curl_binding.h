// The binding of libcurl, which the library loads while the program runs. A process without
// libcurl works in all but HTTP: every HTTP operation then logs "MUST Init LibCURL first!" at
// level 3 and gives its failure value.
//
// Call InitSysLibCURL once before the first HTTP operation and DeInitSysLibCURL once behind
// the last. Neither may run at the same time as the other or as any HTTP operation; nothing
// in the library calls them by itself. Once loaded, any thread may use HTTP.
#pragma once

#include "qvx/types.h"

extern "C" {

// Loads "libcurl.so.4", binds the 21 functions that the library asks for and prepares libcurl
// for the process. 1 if the binding stands afterwards, also if it stood before: calls are not
// counted. 0 where there is no such library, or, logged at level 4, one of the functions is
// missing; nothing stays loaded then.
QVX_API int InitSysLibCURL();

// Cleans libcurl up and gives the binding back. Does nothing without one. libcurl's code
// itself stays mapped, since threads of its own may outlive the call.
QVX_API void DeInitSysLibCURL();

}  // extern "C"
