// Bluetooth serial connections (RFCOMM). The sockets are the kernel's; the device search and
// the service look-up need BlueZ's library, which is bound at the first search. Without kernel
// support no socket can be made; without the library, or without an adapter, a search finds
// nothing.
#pragma once

#include <array>
#include <cstdint>

#include "platform/socket.h"

namespace qvx::platform {

// In the order of the wire, the last byte of the written form first.
using BluetoothAddress = std::array<std::uint8_t, 6>;

// kNoSocket with errno set on failure.
SocketValue MakeRfcommSocket() noexcept;
// Any local adapter, the given channel (1 to 30).
bool BindRfcomm(SocketValue socket, std::uint8_t channel) noexcept;
// Blocks until connected or failed.
bool ConnectRfcomm(SocketValue socket, const BluetoothAddress& peer, std::uint8_t channel) noexcept;

// Searches for the device that reports this name, compared without regard to case. Blocks for
// the search, about ten seconds.
bool FindBluetoothDevice(const char* name, BluetoothAddress* address) noexcept;
// The channel of the device's Serial Port Profile service (0x1101), 1 where it can't be told.
std::uint8_t FindSerialChannel(const BluetoothAddress& address) noexcept;

// What stands for the kernel's RFCOMM calls in tests; null members keep the kernel's own.
// Each gives -1 with errno set on failure, make gives a descriptor.
struct RfcommCalls {
  int (*make)() = nullptr;
  int (*bind)(int descriptor, std::uint8_t channel) = nullptr;
  int (*connect)(int descriptor, const BluetoothAddress& peer, std::uint8_t channel) = nullptr;
};

// For tests only; null brings the kernel's calls back.
void SetRfcommCalls(const RfcommCalls* calls) noexcept;

}  // namespace qvx::platform
