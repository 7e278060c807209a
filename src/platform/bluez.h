// The calls of BlueZ's library (libbluetooth.so.3) that the device search and the service
// look-up need, bound at run time. Private to bluetooth.cpp.
#pragma once

#include <cstdint>

#include "platform/dynamic_library.h"

namespace qvx::platform {

// The records that the library exchanges with its callers, as its ABI lays them out.

#pragma pack(push, 1)

struct BluezAddress {
  std::uint8_t bytes[6];
};

struct BluezInquiry {
  BluezAddress address;
  std::uint8_t scan_repetition;
  std::uint8_t scan_period;
  std::uint8_t scan_mode;
  std::uint8_t device_class[3];
  std::uint16_t clock_offset;
};

#pragma pack(pop)

struct BluezList {
  BluezList* next;
  void* data;
};

struct BluezUuid {
  std::uint8_t type;
  alignas(4) std::uint8_t value[16];
};

struct BluezSession;
struct BluezRecord;

struct Bluez {
  using FreeFunction = void(void* data);

  int (*hci_get_route)(BluezAddress* address);
  int (*hci_open_dev)(int device);
  int (*hci_close_dev)(int handle);
  int (*hci_inquiry)(int device, int length, int most, const std::uint8_t* lap,
                     BluezInquiry** found, long flags);
  int (*hci_read_remote_name)(int handle, const BluezAddress* address, int size, char* name,
                              int milliseconds);
  BluezUuid* (*sdp_uuid16_create)(BluezUuid* uuid, std::uint16_t value);
  BluezList* (*sdp_list_append)(BluezList* list, void* data);
  void (*sdp_list_free)(BluezList* list, FreeFunction* free_data);
  BluezSession* (*sdp_connect)(const BluezAddress* from, const BluezAddress* to,
                               std::uint32_t flags);
  int (*sdp_close)(BluezSession* session);
  int (*sdp_service_search_attr_req)(BluezSession* session, const BluezList* search, int type,
                                     const BluezList* attributes, BluezList** records);
  int (*sdp_get_access_protos)(const BluezRecord* record, BluezList** protocols);
  int (*sdp_get_proto_port)(const BluezList* protocols, int protocol);
  void (*sdp_record_free)(BluezRecord* record);

  // Null if the library can't be loaded or lacks a name. Loaded once, never unloaded.
  static const Bluez* Get() noexcept;

 private:
  bool Bind();

  DynamicLibrary library_;
};

}  // namespace qvx::platform
