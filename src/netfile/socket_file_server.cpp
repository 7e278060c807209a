#include "qvx/socket_file_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "netfile/folder_names.h"
#include "netfile/open_file.h"
#include "netfile/records.h"
#include "platform/file.h"
#include "platform/fork.h"
#include "platform/path.h"
#include "qvx/debug_output.h"
#include "qvx/file_data.h"
#include "qvx/md5.h"
#include "qvx/ptr_ctrl.h"

using namespace qvx::netfile;

namespace {

constexpr std::uint32_t kAllClients = 0xFFFFFFFF;
// Up to this a read is answered from memory: one send beats a range of the file.
constexpr std::uint32_t kSmallRead = 0x10000;
// A file that may also be written is read into memory up to this, so that an answer that
// waits in the send queue doesn't show a later write.
constexpr std::uint32_t kCopiedRead = 0x100000;
constexpr std::size_t kMaxListBytes = 0x40000000;

std::uint32_t Descriptor(std::uint64_t socket) {
  return static_cast<std::uint32_t>(socket);
}

struct FileKey {
  std::uint32_t socket;
  std::uint64_t handle;
};

int MatchesFile(const void* entry, const void* key) {
  auto* file = static_cast<const tagCLIENTOPENFILE*>(entry);
  auto* wanted = static_cast<const FileKey*>(key);
  return file->nSocketFD == wanted->socket && file->nFileHandle == wanted->handle;
}

int MatchesClient(const void* entry, const void* key) {
  auto socket = *static_cast<const std::uint32_t*>(key);
  return socket == kAllClients || static_cast<const tagCLIENTOPENFILE*>(entry)->nSocketFD == socket;
}

void MoveFile(const WCHAR* from, const WCHAR* to) {
  auto native_from = qvx::platform::ToNativePath(from);
  auto native_to = qvx::platform::ToNativePath(to);
  if (native_from && native_to) qvx::platform::MoveWithoutOverwrite(*native_from, *native_to);
}

// The names of a list as they go over the wire.
std::u16string JoinNames(CPtrCtrl& names) {
  std::u16string joined;
  for (int i = 0; i < names.GetCount(); ++i) {
    auto* name = static_cast<const WCHAR*>(names.GetAt(i));
    if (!*name) continue;
    if (i > 0) joined += SOCKET_FILE_LIST_SEPARATOR;
    joined += name;
  }
  return joined;
}

}  // namespace

IServerFolderPathInterface::~IServerFolderPathInterface() = default;

void IServerFolderPathInterface::OnGetFolderPath(std::int32_t, WCHAR* szPath, std::uint64_t) {
  szPath[0] = 0;
}

CSocketFileServer::CSocketFileServer()
    : mForkGuard(std::make_unique<qvx::platform::ForkGuard>(mOpenFileLock.GetCS())) {}

CSocketFileServer::CSocketFileServer(const CSocketFileServer&) : CSocketFileServer() {}

CSocketFileServer& CSocketFileServer::operator=(const CSocketFileServer&) {
  return *this;
}

CSocketFileServer::~CSocketFileServer() {
  Close();
  CloseAllClientOpenFile(kAllClients);
}

int CSocketFileServer::Create(std::uint16_t nPort, const char* threadName) {
  return CSocketServer::Create(nPort, 0, 1, this, 0, threadName);
}

void CSocketFileServer::SetFolderPathInterface(IServerFolderPathInterface* folderPathInterface,
                                               std::uint64_t context) {
  LockClient();
  mFolderPathInterface = folderPathInterface;
  mFolderPathContext = context;
  UnlockClient();
}

int CSocketFileServer::OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO* client,
                                           const unsigned char* data, int size) {
  auto bytes = static_cast<std::uint32_t>(std::max(size, 0));
  if (bytes < sizeof(tagSOCKETFILEHEADER)) return 1;
  tagSOCKETFILEHEADER header;
  std::memcpy(&header, data, sizeof(header));
  if (header.nVersion != SOCKET_FILE_VERSION) {
    DbgOutputA(2, "%s: Net File Version NOT MATCH\r\n", "CSocketFileServer::OnServerReceiveData");
    return 0;
  }
  if (!IsRequest(header.nCommand)) return 1;
  if (bytes < SizesOf(header.nCommand).request) {
    AnswerFailure(client->nSocketFD, header);
    return 1;
  }
  try {
    Dispatch(client->nSocketFD, header.nCommand, data, bytes);
  } catch (const std::bad_alloc&) {
    AnswerFailure(client->nSocketFD, header);
  }
  return 1;
}

void CSocketFileServer::OnServerCloseClient(std::uint64_t, tagCLIENTSOCKETINFO* client) {
  CloseAllClientOpenFile(Descriptor(client->nSocketFD));
}

void CSocketFileServer::Dispatch(std::uint64_t nSocketFD, std::uint32_t nCommand,
                                 const unsigned char* data, std::uint32_t size) {
  const void* record = data;
  switch (nCommand) {
    case SOCKET_FILE_REQ_FOLDERPATH:
      return OnRequestFolderPath(nSocketFD, static_cast<const tagSOCKETFILEREQFOLDERPATH*>(record));
    case SOCKET_FILE_REQ_OPEN:
      return OnRequestOpen(nSocketFD, static_cast<const tagSOCKETFILEREQOPEN*>(record));
    case SOCKET_FILE_REQ_CLOSE:
      return OnRequestClose(nSocketFD, static_cast<const tagSOCKETFILEREQCLOSE*>(record));
    case SOCKET_FILE_REQ_DELETE:
      return OnRequestDelete(nSocketFD, static_cast<const tagSOCKETFILEREQDELETE*>(record));
    case SOCKET_FILE_REQ_RENAME:
      return OnRequestRename(nSocketFD, static_cast<const tagSOCKETFILEREQRENAME*>(record));
    case SOCKET_FILE_REQ_GETSIZE:
      return OnRequestGetSize(nSocketFD, static_cast<const tagSOCKETFILEREQGETSIZE*>(record));
    case SOCKET_FILE_REQ_READ:
      return OnRequestRead(nSocketFD, static_cast<const tagSOCKETFILEREQREAD*>(record));
    case SOCKET_FILE_REQ_WRITE:
      return OnRequestWrite(nSocketFD, static_cast<const tagSOCKETFILEREQWRITE*>(record),
                            size - static_cast<std::uint32_t>(sizeof(tagSOCKETFILEREQWRITE)));
    case SOCKET_FILE_REQ_GETMD5:
      return OnRequestGetMD5(nSocketFD, static_cast<const tagSOCKETFILEREQGETMD5*>(record));
    case SOCKET_FILE_REQ_GETFOLDERLIST:
      return OnRequestGetFolderList(nSocketFD,
                                    static_cast<const tagSOCKETFILEREQGETFOLDERLIST*>(record));
    case SOCKET_FILE_REQ_MKDIR:
      return OnRequestMakeDirectory(nSocketFD, static_cast<const tagSOCKETFILEREQMKDIR*>(record));
    default:
      return OnRequestRemoveDirectory(nSocketFD, static_cast<const tagSOCKETFILEREQRMDIR*>(record));
  }
}

void CSocketFileServer::AnswerFailure(std::uint64_t nSocketFD, const tagSOCKETFILEHEADER& request) {
  if (HasBareResult(request.nCommand)) return AnswerResult(nSocketFD, request, 1);
  unsigned char answer[sizeof(tagSOCKETFILERESFOLDERPATH)] = {};
  auto header = AnswerHeader(request);
  std::memcpy(answer, &header, sizeof(header));
  SendData(nSocketFD, answer, static_cast<int>(SizesOf(request.nCommand).answer));
}

void CSocketFileServer::AnswerResult(std::uint64_t nSocketFD, const tagSOCKETFILEHEADER& request,
                                     std::uint32_t nResult) {
  tagSOCKETFILERESRESULT answer{AnswerHeader(request), nResult};
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestFolderPath(std::uint64_t nSocketFD,
                                            const tagSOCKETFILEREQFOLDERPATH* request) {
  WCHAR path[SOCKET_FILE_PATH_UNITS] = {};
  if (mFolderPathInterface)
    mFolderPathInterface->OnGetFolderPath(request->nFolderID, path, mFolderPathContext);
  tagSOCKETFILERESFOLDERPATH answer{AnswerHeader(request->header), {}};
  SetTextField(answer.szPath, path, SOCKET_FILE_PATH_UNITS);
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestOpen(std::uint64_t nSocketFD,
                                      const tagSOCKETFILEREQOPEN* request) {
  PathText path(request->szPath);
  ModeText mode(request->szMode);
  tagSOCKETFILERESOPEN answer{AnswerHeader(request->header), 0};
  qvx::platform::File file;
  if (file.Open(path.text, mode.text)) {
    auto parsed = qvx::platform::ParseOpenMode(std::u16string_view(mode.text));
    answer.nFileHandle = AddClientOpenFileToList(
        Descriptor(nSocketFD), std::make_shared<OpenFile>(std::move(file), *parsed));
  } else {
    DbgOutputW(2, u"openfile %ls failed:%d\r\n", path.text, errno);
  }
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestClose(std::uint64_t nSocketFD,
                                       const tagSOCKETFILEREQCLOSE* request) {
  DelClientOpenFileFromList(Descriptor(nSocketFD), request->nFileHandle);
  AnswerResult(nSocketFD, request->header, 1);
}

void CSocketFileServer::OnRequestDelete(std::uint64_t nSocketFD,
                                        const tagSOCKETFILEREQDELETE* request) {
  auto path = qvx::platform::ToNativePath(PathText(request->szPath).text);
  if (path) qvx::platform::DeleteName(*path);
  AnswerResult(nSocketFD, request->header, 1);
}

void CSocketFileServer::OnRequestRename(std::uint64_t nSocketFD,
                                        const tagSOCKETFILEREQRENAME* request) {
  MoveFile(PathText(request->szPath).text, PathText(request->szNewPath).text);
  AnswerResult(nSocketFD, request->header, 1);
}

void CSocketFileServer::OnRequestGetSize(std::uint64_t nSocketFD,
                                         const tagSOCKETFILEREQGETSIZE* request) {
  auto file = FindClientOpenFile(Descriptor(nSocketFD), request->nFileHandle);
  auto size = file ? std::max<std::int64_t>(file->Content().Size(), 0) : 0;
  tagSOCKETFILERESGETSIZE answer{AnswerHeader(request->header), static_cast<std::uint64_t>(size)};
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestRead(std::uint64_t nSocketFD,
                                      const tagSOCKETFILEREQREAD* request) {
  auto file = FindClientOpenFile(Descriptor(nSocketFD), request->nFileHandle);
  if (!file || !file->Readable() || request->nSize > SOCKET_FILE_MAX_READ)
    return AnswerFailure(nSocketFD, request->header);
  const std::uint64_t offset = request->nOffset;
  auto end = static_cast<std::uint64_t>(std::max<std::int64_t>(file->Content().Size(), 0));
  auto rest = end - std::min(offset, end);
  // Some files of the system show no size and have content all the same.
  bool unknown = rest == 0;
  if (unknown) rest = kCopiedRead;
  auto bytes = static_cast<std::uint32_t>(std::min<std::uint64_t>(rest, request->nSize));
  if (unknown || bytes <= (file->Writable() ? kCopiedRead : kSmallRead))
    return AnswerCopiedRead(nSocketFD, *request, *file, bytes);
  tagSOCKETFILERESREAD answer{AnswerHeader(request->header), bytes};
  SendFileRange(nSocketFD, &answer, sizeof(answer), file, offset, static_cast<int>(bytes));
}

void CSocketFileServer::AnswerCopiedRead(std::uint64_t nSocketFD,
                                         const tagSOCKETFILEREQREAD& request, const OpenFile& file,
                                         std::uint32_t bytes) {
  constexpr auto head = sizeof(tagSOCKETFILERESREAD);
  auto block = std::make_unique_for_overwrite<unsigned char[]>(head + bytes);
  auto read = file.Content().ReadAt(request.nOffset, block.get() + head, bytes);
  tagSOCKETFILERESREAD answer{AnswerHeader(request.header), static_cast<std::uint32_t>(read.count)};
  std::memcpy(block.get(), &answer, head);
  SendData(nSocketFD, block.get(), static_cast<int>(head + read.count));
}

void CSocketFileServer::OnRequestWrite(std::uint64_t nSocketFD,
                                       const tagSOCKETFILEREQWRITE* request,
                                       std::uint32_t dataBytes) {
  auto file = FindClientOpenFile(Descriptor(nSocketFD), request->nFileHandle);
  if (!file || request->nSize > dataBytes) return AnswerFailure(nSocketFD, request->header);
  auto written = file->Content().WriteAt(request->nOffset, request + 1, request->nSize);
  tagSOCKETFILERESWRITE answer{AnswerHeader(request->header),
                               static_cast<std::uint32_t>(written.count)};
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestGetMD5(std::uint64_t nSocketFD,
                                        const tagSOCKETFILEREQGETMD5* request) {
  tagSOCKETFILERESGETMD5 answer{AnswerHeader(request->header), {}};
  ::GetFileMD5(PathText(request->szPath).text, answer.digest);
  SendData(nSocketFD, &answer, sizeof(answer));
}

void CSocketFileServer::OnRequestGetFolderList(std::uint64_t nSocketFD,
                                               const tagSOCKETFILEREQGETFOLDERLIST* request) {
  FolderNames names(PathText(request->szPath).text);
  auto folders = JoinNames(names.folders);
  auto files = JoinNames(names.files);
  auto folder_bytes = folders.size() * sizeof(WCHAR);
  auto file_bytes = files.size() * sizeof(WCHAR);
  if (folder_bytes + file_bytes > kMaxListBytes) return AnswerFailure(nSocketFD, request->header);
  tagSOCKETFILERESGETFOLDERLIST answer{AnswerHeader(request->header),
                                       static_cast<std::uint32_t>(folder_bytes),
                                       static_cast<std::uint32_t>(file_bytes)};
  const tagSOCKETSENDPART parts[] = {
      {&answer, sizeof(answer)}, {folders.data(), folder_bytes}, {files.data(), file_bytes}};
  SendParts(nSocketFD, parts, 3);
}

void CSocketFileServer::OnRequestMakeDirectory(std::uint64_t nSocketFD,
                                               const tagSOCKETFILEREQMKDIR* request) {
  auto path = qvx::platform::ToNativePath(PathText(request->szPath).text);
  if (path) qvx::platform::MakeFolder(*path);
  AnswerResult(nSocketFD, request->header, 1);
}

void CSocketFileServer::OnRequestRemoveDirectory(std::uint64_t nSocketFD,
                                                 const tagSOCKETFILEREQRMDIR* request) {
  RemoveFileW(PathText(request->szPath).text, nullptr, 1, 1);
  AnswerResult(nSocketFD, request->header, 1);
}

std::uint64_t CSocketFileServer::AddClientOpenFileToList(std::uint32_t nSocketFD,
                                                         std::shared_ptr<OpenFile> pFile) {
  CAutoBaseLock lock(&mOpenFileLock);
  auto entry = std::make_unique<tagCLIENTOPENFILE>(
      tagCLIENTOPENFILE{nSocketFD, std::move(pFile), mNextFileHandle});
  mOpenFileList.AddData(entry.get(), -1);
  entry.release();
  return mNextFileHandle++;
}

std::shared_ptr<OpenFile> CSocketFileServer::FindClientOpenFile(std::uint32_t nSocketFD,
                                                                std::uint64_t nFileHandle) {
  CAutoBaseLock lock(&mOpenFileLock);
  FileKey key{nSocketFD, nFileHandle};
  int index = mOpenFileList.FindFirst(&key, MatchesFile);
  if (index < 0) return nullptr;
  return static_cast<const tagCLIENTOPENFILE*>(mOpenFileList.GetAt(index))->pFile;
}

void CSocketFileServer::DelClientOpenFileFromList(std::uint32_t nSocketFD,
                                                  std::uint64_t nFileHandle) {
  CAutoBaseLock lock(&mOpenFileLock);
  FileKey key{nSocketFD, nFileHandle};
  int index = mOpenFileList.FindFirst(&key, MatchesFile);
  if (index >= 0) delete static_cast<const tagCLIENTOPENFILE*>(mOpenFileList.DeleteAt(index, 1));
}

void CSocketFileServer::CloseAllClientOpenFile(std::uint32_t nSocketFD) {
  CAutoBaseLock lock(&mOpenFileLock);
  for (;;) {
    int index = mOpenFileList.FindFirst(&nSocketFD, MatchesClient);
    if (index < 0) return;
    delete static_cast<const tagCLIENTOPENFILE*>(mOpenFileList.DeleteAt(index, 1));
  }
}
