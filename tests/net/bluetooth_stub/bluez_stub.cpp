// Stands in for BlueZ's library in tests: three devices, of which the second offers a serial
// port on channel 7, the third refuses the look-up and the first gives no name. Checks what it
// is given and counts what is not given back (stub_is_content).
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Address {
  std::uint8_t bytes[6];
};

struct Inquiry {
  Address address;
  std::uint8_t rest[8];
};
static_assert(sizeof(Inquiry) == 14);

struct List {
  List* next;
  void* data;
};

struct Uuid {
  std::uint8_t type;
  union {
    std::uint16_t short_value;
    std::uint8_t whole[16];
    std::uint32_t alignment;
  } value;
};

constexpr int kDevice = 3;
constexpr int kHandle = 77;
constexpr const char* kNames[] = {nullptr, "Serial Box", "Plain Box"};

int outstanding = 0;
int faults = 0;

void Expect(bool good) {
  if (!good) ++faults;
}

Address AddressOf(int device) {
  const auto low = static_cast<std::uint8_t>(device);
  return {{low, 0x11, 0x22, 0x33, 0x44, 0x55}};
}

List* NewList(void* data) {
  ++outstanding;
  auto* list = static_cast<List*>(std::malloc(sizeof(List)));
  *list = List{nullptr, data};
  return list;
}

void* NewThing() {
  ++outstanding;
  return std::malloc(16);
}

void FreeThing(void* thing) {
  --outstanding;
  std::free(thing);
}

}  // namespace

extern "C" {

// True if all was given back and nothing wrong was given.
int stub_is_content() {
  return outstanding == 0 && faults == 0 ? 1 : 0;
}

int hci_get_route(Address* address) {
  Expect(address == nullptr);
  return std::getenv("QVX_STUB_NO_ADAPTER") != nullptr ? -1 : kDevice;
}

int hci_open_dev(int device) {
  Expect(device == kDevice);
  ++outstanding;
  return kHandle;
}

int hci_close_dev(int handle) {
  Expect(handle == kHandle);
  --outstanding;
  return 0;
}

int hci_inquiry(int device, int length, int most, const std::uint8_t* lap, Inquiry** found,
                long flags) {
  Expect(device == kDevice && length > 0 && most >= 3 && lap == nullptr && flags == 1);
  if (*found == nullptr) *found = static_cast<Inquiry*>(std::calloc(3, sizeof(Inquiry)));
  for (int i = 0; i < 3; ++i) (*found)[i].address = AddressOf(i);
  return 3;
}

int hci_read_remote_name(int handle, const Address* address, int size, char* name, int) {
  Expect(handle == kHandle && address->bytes[5] == 0x55);
  const char* text = kNames[address->bytes[0]];
  if (text == nullptr) return -1;
  std::strncpy(name, text, static_cast<std::size_t>(size));
  return 0;
}

Uuid* sdp_uuid16_create(Uuid* uuid, std::uint16_t value) {
  uuid->type = 0x19;
  uuid->value.short_value = value;
  return uuid;
}

List* sdp_list_append(List* list, void* data) {
  Expect(list == nullptr);
  return NewList(data);
}

void sdp_list_free(List* list, void (*free_data)(void*)) {
  while (list != nullptr) {
    List* next = list->next;
    if (free_data != nullptr) free_data(list->data);
    FreeThing(list);
    list = next;
  }
}

void* sdp_connect(const Address* from, const Address* to, std::uint32_t flags) {
  const Address any{};
  Expect(std::memcmp(from, &any, sizeof(any)) == 0 && flags == 1);
  return to->bytes[0] == 1 ? NewThing() : nullptr;
}

int sdp_close(void* session) {
  FreeThing(session);
  return 0;
}

int sdp_service_search_attr_req(void*, const List* search, int type, const List* attributes,
                                List** records) {
  Expect(static_cast<Uuid*>(search->data)->value.short_value == 0x1101);
  Expect(type == 1 && *static_cast<std::uint16_t*>(attributes->data) == 4);
  *records = NewList(NewThing());
  (*records)->next = NewList(NewThing());
  return 0;
}

int sdp_get_access_protos(const void*, List** protocols) {
  *protocols = NewList(NewList(nullptr));
  return 0;
}

int sdp_get_proto_port(const List*, int protocol) {
  return protocol == 3 ? 7 : 0;
}

void sdp_record_free(void* record) {
  FreeThing(record);
}

}  // extern "C"
