// Serial ports by their names, and port settings as short texts such as 8N1. No state; all
// functions may be called from any thread, and none blocks for longer than a look at the file
// system. MapSerialPort of platform.h puts devices behind names; docs/platform.md tells which
// names the machine's own ports have.
#pragma once

#include <qvx/base_string.h>
#include <qvx/ptr_ctrl.h>
#include <qvx/types.h>

extern "C" {

// Writes byte size (cut to 4 to 8), parity (0 N, 1 O, 2 E, 3 M, 4 S and above) and stop bits
// (0 "1", 1 "1.5", 2 "2" and above) into *text, as "8N1". A null text does nothing.
QVX_API void SerialDCBToString(unsigned char byteSize, unsigned char parity, unsigned char stopBits,
                               CBaseStringA* text);

// The way back. len: negative up to the NUL. A byte size other than 4 to 7 counts as 8, a parity
// letter (in either case) that is none as N, stop bits other than "1.5" and "2" as 1. A null or
// too short text gives 8, 0, 0. A null among the results writes nothing.
QVX_API void SerialParseDCBString(const char* text, int len, unsigned char* byteSize,
                                  unsigned char* parity, unsigned char* stopBits);

// Adds the names of the machine's serial ports ("COM1") that the list does not hold yet, without
// regard to case. Bluetooth ports are left out. The elements are texts of the form's width, to be
// released by FreeSerialPortNameA or FreeSerialPortNameW. Throws std::bad_alloc; the list then
// holds what was added before.
QVX_API void EnumSerialPortNameA(CPtrCtrl* list);
QVX_API void EnumSerialPortNameW(CPtrCtrl* list);

// Frees every element and empties the list; null does nothing. Both do the same.
QVX_API void FreeSerialPortNameA(CPtrCtrl* list);
QVX_API void FreeSerialPortNameW(CPtrCtrl* list);

// 1 if the machine has a port of this name now, Bluetooth ports included, without regard to case;
// else 0, also for null.
QVX_API int IsSerialPortNameExistA(const char* name);
QVX_API int IsSerialPortNameExistW(const WCHAR* name);

}  // extern "C"
