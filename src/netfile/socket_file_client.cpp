#include "qvx/socket_file_client.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "netfile/exchange.h"
#include "netfile/records.h"
#include "netfile/speed_limit.h"
#include "platform/fork.h"
#include "qvx/debug_output.h"

using qvx::netfile::Exchange;
using qvx::netfile::kDigestWait;
using qvx::netfile::kShortWait;

namespace {

constexpr auto kReadHead = static_cast<std::uint32_t>(sizeof(tagSOCKETFILERESREAD));
constexpr auto kMaxWrite = static_cast<std::uint32_t>(INT_MAX - sizeof(tagSOCKETFILEREQWRITE));

int MatchesSerial(const void* entry, const void* key) {
  return static_cast<const tagSOCKETFILEWAITER*>(entry)->nSerial ==
         *static_cast<const std::uint32_t*>(key);
}

tagSOCKETFILERESREAD ReadHead(const unsigned char* data) {
  tagSOCKETFILERESREAD head;
  std::memcpy(&head, data, sizeof(head));
  return head;
}

void SetList(CBaseStringW* list, const std::u16string& names) {
  if (list && !names.empty()) list->Set(names.data(), static_cast<int>(names.size()));
}

}  // namespace

CSocketFileClient::CSocketFileClient() {
  SetPlacedHead(kReadHead);
}

CSocketFileClient::CSocketFileClient(const CSocketFileClient&) : CSocketFileClient() {}

CSocketFileClient& CSocketFileClient::operator=(const CSocketFileClient&) {
  return *this;
}

CSocketFileClient::~CSocketFileClient() {
  Close();
  CAutoBaseLock lock(&mWaiterLock);
  mWaiterList.DeleteAll();
}

// The threads that waited did not come along, and the connection is the parent's.
void CSocketFileClient::OnForkedChild(void* client) {
  auto* self = static_cast<CSocketFileClient*>(client);
  self->mWaiterList.DeleteAll();
  self->mOpenFile.store(0);
}

int CSocketFileClient::Create(const char* host, std::uint16_t nPort, const char* threadName) {
  return CSocketClient::Create(host, nPort, 0, 1, this, 0, threadName);
}

void CSocketFileClient::GetFolderPath(std::int32_t nFolderID, WCHAR* path) {
  if (!path || !IsConnect()) return;
  Exchange exchange(*this);
  exchange.StartFolderPath(nFolderID, path);
  exchange.Wait(kShortWait);
}

int CSocketFileClient::OpenFile(const WCHAR* path, const WCHAR* mode) {
  if (!IsConnect()) return 0;
  CloseFile();
  Exchange exchange(*this);
  exchange.StartOpen(path, mode, &mOpenFile);
  exchange.Wait(kShortWait);
  return mOpenFile.load() != 0;
}

int CSocketFileClient::CloseFile() {
  std::uint64_t handle = mOpenFile.load();
  if (!IsConnect() || handle == 0) return 0;
  Exchange exchange(*this);
  exchange.StartClose(handle);
  exchange.Wait(kShortWait);
  mOpenFile.compare_exchange_strong(handle, 0);
  return static_cast<int>(exchange.Value());
}

std::uint64_t CSocketFileClient::GetFileSize() {
  std::uint64_t handle = mOpenFile.load();
  if (!IsConnect() || handle == 0) return 0;
  Exchange exchange(*this);
  exchange.StartSize(handle);
  exchange.Wait(kShortWait);
  return exchange.Value();
}

std::uint32_t CSocketFileClient::ReadFile(std::uint64_t offset, void* buffer, std::uint32_t size,
                                          std::uint64_t timeoutMs) {
  qvx::netfile::SpeedLimit limit;
  std::uint64_t handle = mOpenFile.load();
  if (!IsConnect() || handle == 0) {
    DbgOutputA(2, "Net Closed!!\r\n");
    return 0;
  }
  if (!buffer) return 0;
  Exchange exchange(*this);
  exchange.StartRead(handle, offset, buffer, size);
  exchange.Wait(timeoutMs);
  auto bytes = static_cast<std::uint32_t>(exchange.Value());
  limit.Keep(bytes, mReadSpeedLimit.load());
  return bytes;
}

std::uint32_t CSocketFileClient::WriteFile(std::uint64_t offset, const void* data,
                                           std::uint32_t size, std::uint64_t timeoutMs) {
  qvx::netfile::SpeedLimit limit;
  std::uint64_t handle = mOpenFile.load();
  if (!IsConnect() || handle == 0) {
    DbgOutputA(2, "Net Closed!!\r\n");
    return 0;
  }
  if (!data || size > kMaxWrite) return 0;
  Exchange exchange(*this);
  exchange.StartWrite(handle, offset, data, size);
  exchange.Wait(timeoutMs);
  auto bytes = std::min(static_cast<std::uint32_t>(exchange.Value()), size);
  limit.Keep(bytes, mWriteSpeedLimit.load());
  return bytes;
}

int CSocketFileClient::GetFileMD5(const WCHAR* path, unsigned char* digest) {
  if (!path) return 0;
  Exchange exchange(*this);
  exchange.StartDigest(path, digest);
  return exchange.Wait(kDigestWait) ? 1 : 0;
}

int CSocketFileClient::SendPathRequest(std::uint32_t nCommand, const WCHAR* path) {
  if (!IsConnect()) return 0;
  Exchange exchange(*this);
  exchange.StartPath(nCommand, path);
  exchange.Wait(kShortWait);
  return static_cast<int>(exchange.Value());
}

int CSocketFileClient::DeleteFileW(const WCHAR* path) {
  return SendPathRequest(SOCKET_FILE_REQ_DELETE, path);
}

int CSocketFileClient::MakeDirectory(const WCHAR* path) {
  return SendPathRequest(SOCKET_FILE_REQ_MKDIR, path);
}

int CSocketFileClient::RemoveDirectoryW(const WCHAR* path) {
  return SendPathRequest(SOCKET_FILE_REQ_RMDIR, path);
}

int CSocketFileClient::RenameFile(const WCHAR* oldPath, const WCHAR* newPath) {
  if (!IsConnect()) return 0;
  Exchange exchange(*this);
  exchange.StartRename(oldPath, newPath);
  exchange.Wait(kShortWait);
  return static_cast<int>(exchange.Value());
}

void CSocketFileClient::GetFolderList(const WCHAR* path, CBaseStringW* folderList,
                                      CBaseStringW* fileList) {
  if (!IsConnect()) return;
  std::u16string folders;
  std::u16string files;
  Exchange exchange(*this);
  exchange.StartList(path, &folders, &files);
  exchange.Wait(kShortWait);
  SetList(folderList, folders);
  SetList(fileList, files);
}

void CSocketFileClient::LimitReadSpeed(std::uint64_t bytesPerSecond) {
  mReadSpeedLimit.store(bytesPerSecond);
}

void CSocketFileClient::LimitWriteSpeed(std::uint64_t bytesPerSecond) {
  mWriteSpeedLimit.store(bytesPerSecond);
}

// Right before the client counts as closed its waiters are woken; none may be added after that.
bool CSocketFileClient::HasEnded() {
  const std::uint64_t socket = GetSocketFd();
  return socket == QVX_INVALID_SOCKET || socket == mEndedSocket;
}

int CSocketFileClient::OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char* data,
                                           int size) {
  auto bytes = static_cast<std::uint32_t>(std::max(size, 0));
  std::uint32_t version = 0;
  if (bytes >= sizeof(version)) std::memcpy(&version, data, sizeof(version));
  if (version != SOCKET_FILE_VERSION) {
    DbgOutputA(2, "%s: Net File Version NOT MATCH\r\n", "CSocketFileClient::OnClientReceiveData");
    return 0;
  }
  if (bytes < sizeof(tagSOCKETFILEHEADER)) return 1;
  tagSOCKETFILEHEADER header;
  std::memcpy(&header, data, sizeof(header));
  CAutoBaseLock lock(&mWaiterLock);
  if (tagSOCKETFILEWAITER* waiter = FindWaiter(header.nSerial)) {
    waiter->Store(header.nCommand, data, bytes);
    waiter->Wake();
  }
  return 1;
}

void CSocketFileClient::OnClientDisconnectFromServer(std::uint64_t, std::uint64_t nSocketFD) {
  DbgOutputA(2, "Client Socket(%d) Disconnect\r\n", static_cast<int>(nSocketFD));
  CAutoBaseLock lock(&mWaiterLock);
  mEndedSocket = nSocketFD;
  mOpenFile.store(0);
  for (int i = 0; i < mWaiterList.GetCount(); ++i) {
    auto* waiter = static_cast<const tagSOCKETFILEWAITER*>(mWaiterList.GetAt(i));
    const_cast<tagSOCKETFILEWAITER*>(waiter)->Wake();
  }
}

tagSOCKETFILEWAITER* CSocketFileClient::FindWaiter(std::uint32_t nSerial) {
  int index = mWaiterList.FindFirst(&nSerial, MatchesSerial);
  if (index < 0) return nullptr;
  auto* waiter = static_cast<const tagSOCKETFILEWAITER*>(mWaiterList.GetAt(index));
  return const_cast<tagSOCKETFILEWAITER*>(waiter);
}

// The waiter of a read whose answer holds together and fits its buffer.
tagSOCKETFILEWAITER* CSocketFileClient::FindReader(const unsigned char* pHead,
                                                   std::uint32_t nLength) {
  auto head = ReadHead(pHead);
  if (head.header.nVersion != SOCKET_FILE_VERSION || head.header.nCommand != SOCKET_FILE_RES_READ ||
      nLength - kReadHead != head.nReadBytes)
    return nullptr;
  tagSOCKETFILEWAITER* waiter = FindWaiter(head.header.nSerial);
  bool fits =
      waiter && waiter->nAnswer == SOCKET_FILE_RES_READ && head.nReadBytes <= waiter->capacity;
  return fits ? waiter : nullptr;
}

// Holds the waiter lock until OnPayloadPlaced, so that the buffer lives while it is written.
unsigned char* CSocketFileClient::OnPlacePayload(const unsigned char* pHead, std::uint32_t nLength,
                                                 std::uint32_t nOffset, std::uint32_t* pRoom) {
  mWaiterLock.Lock();
  mPlacedReader = FindReader(pHead, nLength);
  if (!mPlacedReader) {
    mWaiterLock.Unlock();
    return nullptr;
  }
  if (!mPlacedReader->file)
    return static_cast<unsigned char*>(mPlacedReader->buffer) + (nOffset - kReadHead);
  return mPlacedReader->file->Place(pRoom);
}

void CSocketFileClient::OnPayloadPlaced(std::uint32_t, std::uint32_t nSize) {
  if (auto* file = mPlacedReader->file) file->Placed(nSize);
  mWaiterLock.Unlock();
}

std::uint32_t CSocketFileClient::OnPourPayload(const unsigned char* pHead, std::uint32_t nLength,
                                               std::uint32_t nOffset, std::uint64_t nSocketFD) {
  CAutoBaseLock lock(&mWaiterLock);
  const tagSOCKETFILEWAITER* reader = FindReader(pHead, nLength);
  if (!reader || !reader->file) return 0;
  return reader->file->Pour(nSocketFD, nLength - nOffset);
}

int CSocketFileClient::OnPlacedPacket(const unsigned char* pHead, std::uint32_t nLength) {
  CAutoBaseLock lock(&mWaiterLock);
  if (tagSOCKETFILEWAITER* waiter = FindReader(pHead, nLength)) {
    if (waiter->file) waiter->file->Flush();
    waiter->value = nLength - kReadHead;
    waiter->stored = true;
    waiter->Wake();
  }
  return 1;
}
