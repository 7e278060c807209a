// The records of the network file service: what a file client and a file server say to
// each other. Each record is the payload of one packet of socket_primitives.h; requests
// carry the routing code SOCKET_CODE_TO_SERVER. All integers are little-endian, records
// are packed, text is UTF-16LE. Plain data; no functions, no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

// The first field of every record.
constexpr std::uint32_t SOCKET_FILE_VERSION = 0x10000003;

// Units of a path field: at most 259 and a NUL. What follows the NUL has no meaning.
constexpr std::size_t SOCKET_FILE_PATH_UNITS = 260;
// Units of a mode field ("rb", "wb" and the like): at most 15 and a NUL.
constexpr std::size_t SOCKET_FILE_MODE_UNITS = 16;

// The most bytes that the server gives in one answer. A read request for more is answered
// with 0 bytes.
constexpr std::uint32_t SOCKET_FILE_MAX_READ = 64u * 1024u * 1024u;

// Separates the names of a folder or file list.
constexpr WCHAR SOCKET_FILE_LIST_SEPARATOR = u';';

// Requests are odd; the answer to a request has its code plus one.
enum SOCKETFILECOMMAND : std::uint32_t {
  SOCKET_FILE_REQ_FOLDERPATH = 1,
  SOCKET_FILE_RES_FOLDERPATH = 2,
  SOCKET_FILE_REQ_OPEN = 3,
  SOCKET_FILE_RES_OPEN = 4,
  SOCKET_FILE_REQ_CLOSE = 5,
  SOCKET_FILE_RES_CLOSE = 6,
  SOCKET_FILE_REQ_DELETE = 7,
  SOCKET_FILE_RES_DELETE = 8,
  SOCKET_FILE_REQ_RENAME = 9,
  SOCKET_FILE_RES_RENAME = 10,
  SOCKET_FILE_REQ_GETSIZE = 11,
  SOCKET_FILE_RES_GETSIZE = 12,
  SOCKET_FILE_REQ_READ = 13,
  SOCKET_FILE_RES_READ = 14,
  SOCKET_FILE_REQ_WRITE = 15,
  SOCKET_FILE_RES_WRITE = 16,
  SOCKET_FILE_REQ_GETMD5 = 17,
  SOCKET_FILE_RES_GETMD5 = 18,
  SOCKET_FILE_REQ_GETFOLDERLIST = 19,
  SOCKET_FILE_RES_GETFOLDERLIST = 20,
  SOCKET_FILE_REQ_MKDIR = 21,
  SOCKET_FILE_RES_MKDIR = 22,
  SOCKET_FILE_REQ_RMDIR = 23,
  SOCKET_FILE_RES_RMDIR = 24,
};

#pragma pack(push, 1)

// Opens every record.
struct tagSOCKETFILEHEADER {
  std::uint32_t nVersion;  // SOCKET_FILE_VERSION
  std::uint32_t nSerial;   // the client's request number; the answer repeats it
  std::uint32_t nCommand;  // SOCKETFILECOMMAND
  std::uint64_t nCookie;   // the client's choice; the answer repeats it unread
};

// Asks for the path of one of the application's numbered folders.
struct tagSOCKETFILEREQFOLDERPATH {
  tagSOCKETFILEHEADER header;
  std::int32_t nFolderID;
};

// Opens a file; szMode is a mode text of the C library.
struct tagSOCKETFILEREQOPEN {
  tagSOCKETFILEHEADER header;
  WCHAR szPath[SOCKET_FILE_PATH_UNITS];
  WCHAR szMode[SOCKET_FILE_MODE_UNITS];
};

// A request about an open file: close and get size.
struct tagSOCKETFILEREQHANDLE {
  tagSOCKETFILEHEADER header;
  std::uint64_t nFileHandle;
};
using tagSOCKETFILEREQCLOSE = tagSOCKETFILEREQHANDLE;
using tagSOCKETFILEREQGETSIZE = tagSOCKETFILEREQHANDLE;

// A request about one path: delete, get digest, list, make and empty a folder.
struct tagSOCKETFILEREQPATH {
  tagSOCKETFILEHEADER header;
  WCHAR szPath[SOCKET_FILE_PATH_UNITS];
};
using tagSOCKETFILEREQDELETE = tagSOCKETFILEREQPATH;
using tagSOCKETFILEREQGETMD5 = tagSOCKETFILEREQPATH;
using tagSOCKETFILEREQGETFOLDERLIST = tagSOCKETFILEREQPATH;
using tagSOCKETFILEREQMKDIR = tagSOCKETFILEREQPATH;
using tagSOCKETFILEREQRMDIR = tagSOCKETFILEREQPATH;

struct tagSOCKETFILEREQRENAME {
  tagSOCKETFILEHEADER header;
  WCHAR szPath[SOCKET_FILE_PATH_UNITS];
  WCHAR szNewPath[SOCKET_FILE_PATH_UNITS];
};

// Read and write name an absolute position and a byte count; the bytes to write follow.
struct tagSOCKETFILEREQRANGE {
  tagSOCKETFILEHEADER header;
  std::uint64_t nFileHandle;
  std::uint64_t nOffset;
  std::uint32_t nSize;
};
using tagSOCKETFILEREQREAD = tagSOCKETFILEREQRANGE;
using tagSOCKETFILEREQWRITE = tagSOCKETFILEREQRANGE;

// szPath is empty where the server has no such folder.
struct tagSOCKETFILERESFOLDERPATH {
  tagSOCKETFILEHEADER header;
  WCHAR szPath[SOCKET_FILE_PATH_UNITS];
};

// nFileHandle is a number that the server never gives twice; 0 says that the open failed.
struct tagSOCKETFILERESOPEN {
  tagSOCKETFILEHEADER header;
  std::uint64_t nFileHandle;
};

// nResult is 1 and says only that the request was carried out, not how it went.
struct tagSOCKETFILERESRESULT {
  tagSOCKETFILEHEADER header;
  std::uint32_t nResult;
};
using tagSOCKETFILERESCLOSE = tagSOCKETFILERESRESULT;
using tagSOCKETFILERESDELETE = tagSOCKETFILERESRESULT;
using tagSOCKETFILERESRENAME = tagSOCKETFILERESRESULT;
using tagSOCKETFILERESMKDIR = tagSOCKETFILERESRESULT;
using tagSOCKETFILERESRMDIR = tagSOCKETFILERESRESULT;

// 0 for a bad handle or a failure.
struct tagSOCKETFILERESGETSIZE {
  tagSOCKETFILEHEADER header;
  std::uint64_t nFileSize;
};

// nReadBytes bytes follow, at most as many as were asked for; 0 at the end of the file or
// after a failure.
struct tagSOCKETFILERESREAD {
  tagSOCKETFILEHEADER header;
  std::uint32_t nReadBytes;
};

struct tagSOCKETFILERESWRITE {
  tagSOCKETFILEHEADER header;
  std::uint32_t nWrittenBytes;
};

// RFC 1321; all zero for a file that is empty or can't be opened.
struct tagSOCKETFILERESGETMD5 {
  tagSOCKETFILEHEADER header;
  unsigned char digest[16];
};

// The folder list and the file list follow: bare names joined by one separator, without a
// NUL. An empty list takes no bytes.
struct tagSOCKETFILERESGETFOLDERLIST {
  tagSOCKETFILEHEADER header;
  std::uint32_t nFolderListBytes;
  std::uint32_t nFileListBytes;
};

#pragma pack(pop)

static_assert(sizeof(tagSOCKETFILEHEADER) == 20);
static_assert(sizeof(tagSOCKETFILEREQFOLDERPATH) == 24);
static_assert(sizeof(tagSOCKETFILEREQOPEN) == 572);
static_assert(sizeof(tagSOCKETFILEREQHANDLE) == 28);
static_assert(sizeof(tagSOCKETFILEREQPATH) == 540);
static_assert(sizeof(tagSOCKETFILEREQRENAME) == 1060);
static_assert(sizeof(tagSOCKETFILEREQRANGE) == 40);
static_assert(sizeof(tagSOCKETFILERESFOLDERPATH) == 540);
static_assert(sizeof(tagSOCKETFILERESOPEN) == 28);
static_assert(sizeof(tagSOCKETFILERESRESULT) == 24);
static_assert(sizeof(tagSOCKETFILERESGETSIZE) == 28);
static_assert(sizeof(tagSOCKETFILERESREAD) == 24);
static_assert(sizeof(tagSOCKETFILERESWRITE) == 24);
static_assert(sizeof(tagSOCKETFILERESGETMD5) == 36);
static_assert(sizeof(tagSOCKETFILERESGETFOLDERLIST) == 28);
