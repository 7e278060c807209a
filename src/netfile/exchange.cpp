#include "netfile/exchange.h"

#include <algorithm>
#include <cstring>

#include "netfile/records.h"
#include "qvx/debug_output.h"

namespace {

template <typename T>
T LoadAt(const unsigned char* data, std::size_t offset) {
  T value;
  std::memcpy(&value, data + offset, sizeof(value));
  return value;
}

std::u16string WideText(const unsigned char* data, std::uint32_t bytes) {
  std::u16string text(bytes / sizeof(WCHAR), u'\0');
  std::memcpy(text.data(), data, text.size() * sizeof(WCHAR));
  return text;
}

// By request code / 2.
const char* const kOperationNames[] = {
    "CSocketFileClient::GetFolderPath", "CSocketFileClient::OpenFile",
    "CSocketFileClient::CloseFile",     "CSocketFileClient::DeleteFileW",
    "CSocketFileClient::RenameFile",    "CSocketFileClient::GetFileSize",
    "CSocketFileClient::ReadFile",      "CSocketFileClient::WriteFile",
    "CSocketFileClient::GetFileMD5",    "CSocketFileClient::GetFolderList",
    "CSocketFileClient::MakeDirectory", "CSocketFileClient::RemoveDirectoryW",
};

}  // namespace

void tagSOCKETFILEWAITER::Wake() {
  woken.store(true, std::memory_order_release);
  event.Set();
}

void tagSOCKETFILEWAITER::Store(std::uint32_t command, const unsigned char* data,
                                std::uint32_t size) {
  if (command != nAnswer || size < qvx::netfile::SizesOf(command - 1).answer) return;
  constexpr auto body = sizeof(tagSOCKETFILEHEADER);
  switch (command) {
    case SOCKET_FILE_RES_FOLDERPATH: {
      qvx::netfile::PathText path(data + body);
      std::memcpy(buffer, path.text, capacity);
      break;
    }
    case SOCKET_FILE_RES_OPEN:
      value = LoadAt<std::uint64_t>(data, body);
      if (openFile) openFile->store(value);
      break;
    case SOCKET_FILE_RES_GETSIZE:
      value = LoadAt<std::uint64_t>(data, body);
      break;
    case SOCKET_FILE_RES_GETMD5:
      if (buffer) std::memcpy(buffer, data + body, capacity);
      break;
    case SOCKET_FILE_RES_READ:
      return StoreRead(data, size);
    case SOCKET_FILE_RES_GETFOLDERLIST:
      return StoreLists(data, size);
    default:
      value = LoadAt<std::uint32_t>(data, body);
  }
  stored = true;
}

void tagSOCKETFILEWAITER::StoreRead(const unsigned char* data, std::uint32_t size) {
  constexpr auto head = static_cast<std::uint32_t>(sizeof(tagSOCKETFILERESREAD));
  auto bytes = LoadAt<std::uint32_t>(data, sizeof(tagSOCKETFILEHEADER));
  if (bytes > capacity || bytes > size - head) return;
  if (file) {
    file->Write(data + head, bytes);
  } else if (bytes > 0) {
    std::memcpy(buffer, data + head, bytes);
  }
  value = bytes;
  stored = true;
}

void tagSOCKETFILEWAITER::StoreLists(const unsigned char* data, std::uint32_t size) {
  constexpr auto head = static_cast<std::uint32_t>(sizeof(tagSOCKETFILERESGETFOLDERLIST));
  auto folder_bytes = LoadAt<std::uint32_t>(data, 20);
  auto file_bytes = LoadAt<std::uint32_t>(data, 24);
  if (std::uint64_t{folder_bytes} + file_bytes > size - head) return;
  if (folderNames) *folderNames = WideText(data + head, folder_bytes);
  if (fileNames) *fileNames = WideText(data + head + folder_bytes, file_bytes);
  stored = true;
}

namespace qvx::netfile {

unsigned char* FileSink::Place(std::uint32_t* room) const {
  *room = std::min(*room, kScratchBytes - held_);
  return ways_.scratch.get() + held_;
}

void FileSink::Placed(std::uint32_t size) {
  held_ += size;
  if (held_ == kScratchBytes) Flush();
}

void FileSink::Flush() {
  Write(ways_.scratch.get(), held_);
  held_ = 0;
}

std::uint32_t FileSink::Pour(std::uint64_t socket, std::uint32_t size) {
  if (failed_) return 0;
  bool written = false;
  const auto poured =
      static_cast<std::uint32_t>(ways_.pipe.Pour(socket, size, file_, offset_ + held_, &written));
  if (poured == 0) return 0;
  Flush();
  failed_ |= !written;
  offset_ += poured;
  return poured;
}

void FileSink::Write(const unsigned char* data, std::uint32_t size) {
  if (!failed_) failed_ = file_.WriteAt(offset_, data, size).count != size;
  offset_ += size;
}

Exchange::~Exchange() {
  Unlist();
}

tagSOCKETFILEHEADER Exchange::MakeHeader(std::uint32_t command) {
  waiter_.nSerial = client_.mNextSerial.fetch_add(1);
  waiter_.nAnswer = command + 1;
  return {SOCKET_FILE_VERSION, waiter_.nSerial, command, waiter_.nSerial};
}

bool Exchange::Enlist() {
  CAutoBaseLock lock(&client_.mWaiterLock);
  if (client_.HasEnded()) return false;
  client_.mWaiterList.AddData(&waiter_, -1);
  listed_ = true;
  return true;
}

void Exchange::Unlist() {
  if (!listed_) return;
  CAutoBaseLock lock(&client_.mWaiterLock);
  int index = client_.mWaiterList.FindFirst(&waiter_, nullptr);
  if (index >= 0) client_.mWaiterList.DeleteAt(index, 1);
  listed_ = false;
}

bool Exchange::Send(const void* record, std::size_t size, const void* data, std::size_t data_size) {
  const tagSOCKETSENDPART parts[] = {{record, size}, {data, data_size}};
  return SendBy([&] { return client_.SendDataParts(SOCKET_CODE_TO_SERVER, parts, 2); }) != 0;
}

// What could not be sent, an exception included, is not waited for.
template <typename SendStep>
int Exchange::SendBy(SendStep send) {
  int sent = 0;
  try {
    if (Enlist()) sent = send();
  } catch (...) {
    Unlist();
    throw;
  }
  if (sent == 0) {
    Unlist();
    DbgOutputA(2, "%s: SendData Failed\r\n", kOperationNames[waiter_.nAnswer / 2 - 1]);
  }
  return sent;
}

bool Exchange::StartFolderPath(std::int32_t folder_id, WCHAR* path) {
  waiter_.buffer = path;
  waiter_.capacity = SOCKET_FILE_PATH_UNITS * sizeof(WCHAR);
  tagSOCKETFILEREQFOLDERPATH record{MakeHeader(SOCKET_FILE_REQ_FOLDERPATH), folder_id};
  return Send(&record, sizeof(record));
}

bool Exchange::StartOpen(const WCHAR* path, const WCHAR* mode,
                         std::atomic<std::uint64_t>* open_file) {
  if (!client_.IsConnect()) return false;
  waiter_.openFile = open_file;
  tagSOCKETFILEREQOPEN record{MakeHeader(SOCKET_FILE_REQ_OPEN), {}, {}};
  SetTextField(record.szPath, path, SOCKET_FILE_PATH_UNITS);
  SetTextField(record.szMode, mode, SOCKET_FILE_MODE_UNITS);
  return Send(&record, sizeof(record));
}

bool Exchange::StartClose(std::uint64_t handle) {
  tagSOCKETFILEREQCLOSE record{MakeHeader(SOCKET_FILE_REQ_CLOSE), handle};
  return Send(&record, sizeof(record));
}

bool Exchange::StartSize(std::uint64_t handle) {
  tagSOCKETFILEREQGETSIZE record{MakeHeader(SOCKET_FILE_REQ_GETSIZE), handle};
  return Send(&record, sizeof(record));
}

bool Exchange::StartRead(std::uint64_t handle, std::uint64_t offset, void* buffer,
                         std::uint32_t size) {
  waiter_.buffer = buffer;
  return SendRead(handle, offset, size);
}

bool Exchange::StartReadIntoFile(std::uint64_t handle, std::uint64_t offset, FileSink* file,
                                 std::uint32_t size) {
  waiter_.file = file;
  return SendRead(handle, offset, size);
}

bool Exchange::SendRead(std::uint64_t handle, std::uint64_t offset, std::uint32_t size) {
  waiter_.capacity = size;
  tagSOCKETFILEREQREAD record{MakeHeader(SOCKET_FILE_REQ_READ), handle, offset, size};
  return Send(&record, sizeof(record));
}

bool Exchange::StartWrite(std::uint64_t handle, std::uint64_t offset, const void* data,
                          std::uint32_t size) {
  tagSOCKETFILEREQWRITE record{MakeHeader(SOCKET_FILE_REQ_WRITE), handle, offset, size};
  return Send(&record, sizeof(record), data, size);
}

bool Exchange::StartWriteFile(std::uint64_t handle, std::uint64_t offset, int descriptor,
                              std::uint32_t size) {
  tagSOCKETFILEREQWRITE record{MakeHeader(SOCKET_FILE_REQ_WRITE), handle, offset, size};
  int sent = SendBy([&] {
    return client_.SendDataFile(SOCKET_CODE_TO_SERVER, &record, sizeof(record), descriptor, offset,
                                size);
  });
  source_was_short_ = sent == 2;
  return sent != 0;
}

bool Exchange::StartPath(std::uint32_t command, const WCHAR* path) {
  tagSOCKETFILEREQPATH record{MakeHeader(command), {}};
  SetTextField(record.szPath, path, SOCKET_FILE_PATH_UNITS);
  return Send(&record, sizeof(record));
}

bool Exchange::StartRename(const WCHAR* path, const WCHAR* new_path) {
  tagSOCKETFILEREQRENAME record{MakeHeader(SOCKET_FILE_REQ_RENAME), {}, {}};
  SetTextField(record.szPath, path, SOCKET_FILE_PATH_UNITS);
  SetTextField(record.szNewPath, new_path, SOCKET_FILE_PATH_UNITS);
  return Send(&record, sizeof(record));
}

bool Exchange::StartDigest(const WCHAR* path, unsigned char* digest) {
  waiter_.buffer = digest;
  waiter_.capacity = digest ? sizeof(tagSOCKETFILERESGETMD5::digest) : 0;
  return StartPath(SOCKET_FILE_REQ_GETMD5, path);
}

bool Exchange::StartList(const WCHAR* path, std::u16string* folders, std::u16string* files) {
  if (!client_.IsConnect()) return false;
  waiter_.folderNames = folders;
  waiter_.fileNames = files;
  return StartPath(SOCKET_FILE_REQ_GETFOLDERLIST, path);
}

bool Exchange::Ready() const {
  return !listed_ || waiter_.woken.load(std::memory_order_acquire);
}

bool Exchange::Wait(std::uint64_t timeout) {
  if (!listed_) return false;
  bool woken = waiter_.event.Wait(timeout == 0 ? kNoLimit : timeout) != 0;
  if (!woken) {
    DbgOutputA(2, "%s: wait response timeout\r\n", kOperationNames[waiter_.nAnswer / 2 - 1]);
  }
  Unlist();
  return woken;
}

}  // namespace qvx::netfile
