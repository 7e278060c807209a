#include "netfile/records.h"

#include <algorithm>
#include <string>

namespace qvx::netfile {

namespace {

constexpr CommandSizes kSizes[] = {
    {sizeof(tagSOCKETFILEREQFOLDERPATH), sizeof(tagSOCKETFILERESFOLDERPATH)},
    {sizeof(tagSOCKETFILEREQOPEN), sizeof(tagSOCKETFILERESOPEN)},
    {sizeof(tagSOCKETFILEREQCLOSE), sizeof(tagSOCKETFILERESCLOSE)},
    {sizeof(tagSOCKETFILEREQDELETE), sizeof(tagSOCKETFILERESDELETE)},
    {sizeof(tagSOCKETFILEREQRENAME), sizeof(tagSOCKETFILERESRENAME)},
    {sizeof(tagSOCKETFILEREQGETSIZE), sizeof(tagSOCKETFILERESGETSIZE)},
    {sizeof(tagSOCKETFILEREQREAD), sizeof(tagSOCKETFILERESREAD)},
    {sizeof(tagSOCKETFILEREQWRITE), sizeof(tagSOCKETFILERESWRITE)},
    {sizeof(tagSOCKETFILEREQGETMD5), sizeof(tagSOCKETFILERESGETMD5)},
    {sizeof(tagSOCKETFILEREQGETFOLDERLIST), sizeof(tagSOCKETFILERESGETFOLDERLIST)},
    {sizeof(tagSOCKETFILEREQMKDIR), sizeof(tagSOCKETFILERESMKDIR)},
    {sizeof(tagSOCKETFILEREQRMDIR), sizeof(tagSOCKETFILERESRMDIR)},
};

}  // namespace

CommandSizes SizesOf(std::uint32_t request) {
  return kSizes[request / 2];
}

bool HasBareResult(std::uint32_t request) {
  switch (request) {
    case SOCKET_FILE_REQ_CLOSE:
    case SOCKET_FILE_REQ_DELETE:
    case SOCKET_FILE_REQ_RENAME:
    case SOCKET_FILE_REQ_MKDIR:
    case SOCKET_FILE_REQ_RMDIR:
      return true;
    default:
      return false;
  }
}

tagSOCKETFILEHEADER AnswerHeader(const tagSOCKETFILEHEADER& request) {
  return {SOCKET_FILE_VERSION, request.nSerial, request.nCommand + 1, request.nCookie};
}

void SetTextField(void* field, const WCHAR* text, std::size_t units) {
  if (!text) return;
  std::size_t length = 0;
  while (length < units - 1 && text[length]) ++length;
  std::memcpy(field, text, length * sizeof(WCHAR));
}

}  // namespace qvx::netfile
