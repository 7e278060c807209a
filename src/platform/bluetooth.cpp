#include "platform/bluetooth.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "platform/bluez.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr int kFamily = AF_BLUETOOTH;
constexpr int kRfcommProtocol = 3;

// Eight units of 1.28 s, the usual length of a search.
constexpr int kInquiryLength = 8;
constexpr int kMostDevices = 255;
constexpr long kFlushCache = 1;
constexpr int kNameMilliseconds = 5000;
constexpr std::uint16_t kSerialPortService = 0x1101;
constexpr std::uint16_t kProtocolList = 0x0004;
constexpr int kSingleAttributes = 1;
constexpr std::uint32_t kRetryIfBusy = 1;
constexpr std::uint8_t kDefaultChannel = 1;
constexpr int kMostChannels = 30;

// The kernel's address of an RFCOMM socket.
struct RfcommAddress {
  sa_family_t family;
  std::uint8_t address[6];
  std::uint8_t channel;
};

constinit std::atomic<const RfcommCalls*> test_calls{nullptr};

const RfcommCalls* TestCalls() {
  return test_calls.load(std::memory_order_acquire);
}

RfcommAddress ToNative(const BluetoothAddress& address, std::uint8_t channel) {
  RfcommAddress native{};
  native.family = kFamily;
  std::copy(address.begin(), address.end(), native.address);
  native.channel = channel;
  return native;
}

BluezAddress ToBluez(const BluetoothAddress& address) {
  BluezAddress result{};
  std::copy(address.begin(), address.end(), result.bytes);
  return result;
}

int ConnectKernel(int descriptor, const BluetoothAddress& peer, std::uint8_t channel) {
  const RfcommAddress native = ToNative(peer, channel);
  return connect(descriptor, reinterpret_cast<const sockaddr*>(&native), sizeof(native));
}

int BindKernel(int descriptor, std::uint8_t channel) {
  const RfcommAddress native = ToNative(BluetoothAddress{}, channel);
  return bind(descriptor, reinterpret_cast<const sockaddr*>(&native), sizeof(native));
}

// The adapter that a search goes out on.
class Adapter {
 public:
  explicit Adapter(const Bluez& bluez)
      : bluez_(bluez),
        device_(bluez.hci_get_route(nullptr)),
        handle_(device_ < 0 ? -1 : bluez.hci_open_dev(device_)) {}
  ~Adapter() {
    if (handle_ >= 0) bluez_.hci_close_dev(handle_);
  }
  Adapter(const Adapter&) = delete;
  Adapter& operator=(const Adapter&) = delete;

  bool IsOpen() const { return handle_ >= 0; }

  template <typename Visit>
  bool Search(Visit visit) const {
    BluezInquiry* found = nullptr;
    const int count =
        bluez_.hci_inquiry(device_, kInquiryLength, kMostDevices, nullptr, &found, kFlushCache);
    const std::unique_ptr<BluezInquiry, decltype(&free)> owner(found, &free);
    return std::any_of(found, found + std::max(count, 0), visit);
  }

  bool HasName(const BluezAddress& address, const char* name) const {
    char text[249] = {};
    const int size = static_cast<int>(sizeof(text)) - 1;
    const int result =
        bluez_.hci_read_remote_name(handle_, &address, size, text, kNameMilliseconds);
    return result >= 0 && strcasecmp(text, name) == 0;
  }

 private:
  const Bluez& bluez_;
  const int device_;
  const int handle_;
};

// A list of the library, freed with it.
class List {
 public:
  explicit List(const Bluez& bluez, void* first = nullptr) : bluez_(bluez) {
    if (first != nullptr) list_ = bluez.sdp_list_append(nullptr, first);
  }
  ~List() {
    if (list_ != nullptr) bluez_.sdp_list_free(list_, nullptr);
  }
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  BluezList* Get() const { return list_; }
  BluezList** Out() { return &list_; }

 private:
  const Bluez& bluez_;
  BluezList* list_ = nullptr;
};

// The inner lists of the protocol descriptions belong to their callers.
void FreeProtocols(const Bluez& bluez, const List& protocols) {
  for (BluezList* item = protocols.Get(); item != nullptr; item = item->next) {
    bluez.sdp_list_free(static_cast<BluezList*>(item->data), nullptr);
  }
}

int ChannelOfRecord(const Bluez& bluez, const BluezRecord* record) {
  List protocols(bluez);
  if (bluez.sdp_get_access_protos(record, protocols.Out()) != 0) return 0;
  const int channel = bluez.sdp_get_proto_port(protocols.Get(), kRfcommProtocol);
  FreeProtocols(bluez, protocols);
  return channel;
}

int SearchChannel(const Bluez& bluez, BluezSession* session) {
  BluezUuid service{};
  bluez.sdp_uuid16_create(&service, kSerialPortService);
  std::uint16_t attribute = kProtocolList;
  const List search(bluez, &service);
  const List attributes(bluez, &attribute);
  List records(bluez);
  const int result = bluez.sdp_service_search_attr_req(session, search.Get(), kSingleAttributes,
                                                       attributes.Get(), records.Out());
  if (result != 0) return 0;
  int channel = 0;
  for (BluezList* item = records.Get(); item != nullptr; item = item->next) {
    auto* record = static_cast<BluezRecord*>(item->data);
    if (channel < 1) channel = ChannelOfRecord(bluez, record);
    bluez.sdp_record_free(record);
  }
  return channel;
}

}  // namespace

const Bluez* Bluez::Get() noexcept {
  // Never destroyed: a search may still run while the process ends.
  static const Bluez* bluez = []() -> const Bluez* {
    static std::aligned_storage_t<sizeof(Bluez), alignof(Bluez)> place;
    auto* made = new (&place) Bluez();
    return made->Bind() ? made : nullptr;
  }();
  return bluez;
}

bool Bluez::Bind() {
  return library_.Load("libbluetooth.so.3", DynamicLibrary::Unload::kNever) &&
         library_.Bind("hci_get_route", &hci_get_route) &&
         library_.Bind("hci_open_dev", &hci_open_dev) &&
         library_.Bind("hci_close_dev", &hci_close_dev) &&
         library_.Bind("hci_inquiry", &hci_inquiry) &&
         library_.Bind("hci_read_remote_name", &hci_read_remote_name) &&
         library_.Bind("sdp_uuid16_create", &sdp_uuid16_create) &&
         library_.Bind("sdp_list_append", &sdp_list_append) &&
         library_.Bind("sdp_list_free", &sdp_list_free) &&
         library_.Bind("sdp_connect", &sdp_connect) && library_.Bind("sdp_close", &sdp_close) &&
         library_.Bind("sdp_service_search_attr_req", &sdp_service_search_attr_req) &&
         library_.Bind("sdp_get_access_protos", &sdp_get_access_protos) &&
         library_.Bind("sdp_get_proto_port", &sdp_get_proto_port) &&
         library_.Bind("sdp_record_free", &sdp_record_free);
}

void SetRfcommCalls(const RfcommCalls* calls) noexcept {
  test_calls.store(calls, std::memory_order_release);
}

SocketValue MakeRfcommSocket() noexcept {
  const RfcommCalls* calls = TestCalls();
  if (calls == nullptr || calls->make == nullptr) {
    return MakeSocket(kFamily, SOCK_STREAM, kRfcommProtocol);
  }
  const int descriptor = calls->make();
  return descriptor < 0 ? kNoSocket : AdoptSocket(static_cast<SocketValue>(descriptor));
}

bool BindRfcomm(SocketValue socket, std::uint8_t channel) noexcept {
  const SocketUse use(socket);
  const RfcommCalls* calls = TestCalls();
  const auto bind_call = calls != nullptr && calls->bind != nullptr ? calls->bind : &BindKernel;
  return bind_call(use.Descriptor(), channel) == 0;
}

bool ConnectRfcomm(SocketValue socket, const BluetoothAddress& peer,
                   std::uint8_t channel) noexcept {
  const SocketUse use(socket);
  if (SeamFails(Operation::kConnect)) return false;
  const RfcommCalls* calls = TestCalls();
  const auto connect_call =
      calls != nullptr && calls->connect != nullptr ? calls->connect : &ConnectKernel;
  if (connect_call(use.Descriptor(), peer, channel) == 0) return true;
  // An interrupted connect goes on by itself.
  if (errno != EINTR && errno != EINPROGRESS) return false;
  ConnectOutcome outcome = ConnectOutcome::kPending;
  while (outcome == ConnectOutcome::kPending) outcome = WaitConnect(socket, 1000);
  return outcome == ConnectOutcome::kConnected;
}

bool FindBluetoothDevice(const char* name, BluetoothAddress* address) noexcept {
  const Bluez* bluez = Bluez::Get();
  if (bluez == nullptr || name == nullptr) {
    errno = ENODEV;
    return false;
  }
  const Adapter adapter(*bluez);
  const bool found = adapter.IsOpen() && adapter.Search([&](const BluezInquiry& device) {
    if (!adapter.HasName(device.address, name)) return false;
    std::copy_n(device.address.bytes, address->size(), address->begin());
    return true;
  });
  if (!found) errno = ENODEV;
  return found;
}

std::uint8_t FindSerialChannel(const BluetoothAddress& address) noexcept {
  const Bluez* bluez = Bluez::Get();
  if (bluez == nullptr) return kDefaultChannel;
  const BluezAddress any{};
  const BluezAddress peer = ToBluez(address);
  BluezSession* session = bluez->sdp_connect(&any, &peer, kRetryIfBusy);
  if (session == nullptr) return kDefaultChannel;
  const int channel = SearchChannel(*bluez, session);
  bluez->sdp_close(session);
  return channel >= 1 && channel <= kMostChannels ? static_cast<std::uint8_t>(channel)
                                                  : kDefaultChannel;
}

}  // namespace qvx::platform
