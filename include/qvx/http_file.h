// Files on a web server, over HTTP and HTTPS: open one, read ranges of it, stream it, close it;
// and two commands, GET and POST, into a growing buffer. All of it runs on the calling thread,
// blocks until the transfer has ended, and needs InitSysLibCURL (curl_binding.h) before.
//
// The connection arguments are the same twelve everywhere, in this order. All texts are copied.
//   url            what to fetch; http and https only; up to 30 redirects are followed
//   caCertificate  PEM certificates that the server's own must lead to; null or empty turns
//                  all checks of the server off
//   bearerToken    adds the header "Authorization:Bearer " with this token; null or empty: none
//   extraHeader    one further header line as it stands; null: none
//   authType       bit mask of libcurl's CURLAUTH_ values (1 Basic, 2 Digest, ...); 0: none
//   userName       with authType only; null: none
//   password       likewise
//   useProxy       0 leaves the four proxy arguments out; libcurl then looks at the
//                  environment (http_proxy and its kin)
//   proxyType      libcurl's CURLPROXY_ value (0 HTTP, 4 SOCKS4, 5 SOCKS5, ...)
//   proxy          host and port
//   proxyUserName  null: none
//   proxyPassword  null: none
//
// Limits: connecting takes at most 10 s; the request of an open, a GET and a POST 10 s as a
// whole; reads have only the limit of their caller. Failures are logged at level 2.
//
// Threads: one open file serves one call at a time; different files are independent. No signal
// reaches the host from here. A failed allocation inside a transfer ends that transfer and is
// then thrown as std::bad_alloc.
#pragma once

#include <cstdint>

#include "qvx/base_buffer.h"
#include "qvx/base_string.h"
#include "qvx/types.h"

// An open file on a server. Made and owned by the caller; closed when curlHandle is null. Copies
// share the handle: close one of them only.
struct tagHTTPFILEINFO {
  void* curlHandle = nullptr;  // kept between reads, so that they share a connection
  CBaseStringA url;            // as given to the open
  std::uint64_t fileSize = 0;  // bytes; 0 where the server did not tell, or has none
};

// Receives a streamed body. Called on the thread of the transfer, no lock held.
class QVX_API IHttpDataCallback {
 public:
  virtual ~IHttpDataCallback();
  // One piece of the body, which lives only for the call. Any result but len ends the transfer.
  virtual unsigned int OnHttpDataRecvCallback(const unsigned char* data, unsigned int len,
                                              std::uint64_t userData) = 0;
  // Called again and again during the transfer, at least about once a second. Non-zero ends it.
  virtual int OnHttpDataProgressCallback(std::uint64_t userData) = 0;
};

extern "C" {

// Asks for the file's head and keeps a handle for reading it. 1 if the server answered with a
// status below 400. Overwrites what info holds: a file that is still open in it is lost. url is
// set in any case; after a failure the handle is null and the size 0.
QVX_API int OpenHttpFile(tagHTTPFILEINFO* info, const char* url, const CBaseBuffer* caCertificate,
                         const char* bearerToken, const char* extraHeader, long authType,
                         const char* userName, const char* password, int useProxy, long proxyType,
                         const char* proxy, const char* proxyUserName, const char* proxyPassword);

// Closes the handle and empties the record. Null is ignored; without the binding nothing changes.
QVX_API void CloseHttpFile(tagHTTPFILEINFO* info);

// Asks for bytes startPos to startPos + size - 1 and stores what comes, at most size bytes, at
// dest. Returns the bytes stored, also after a failure: what arrived counts. Neither the status
// nor the range of the answer is looked at: a server that ignores ranges gives the start of the
// file. timeoutMs limits the whole call, 0 for no limit; it is looked at about once a second.
// *stopFlag, set non-zero by another thread (atomically, as through std::atomic_ref), ends the
// transfer within about a second. *timedOut becomes 1 where libcurl itself reported a time-out,
// as in connecting; else 0. stopFlag and timedOut may be null.
QVX_API unsigned int ReadHttpBody(tagHTTPFILEINFO* info, std::uint64_t startPos, void* dest,
                                  unsigned int size, std::uint64_t timeoutMs, int* stopFlag,
                                  int* timedOut);

// Streams the file from startPos to its end into callback, or until that ends it. An answer of
// status 400 and above, or one that does not begin at startPos, gives no bytes. No time limit
// but the callback's own.
QVX_API void ReadHttpBodyWithCustomCallback(tagHTTPFILEINFO* info, std::uint64_t startPos,
                                            IHttpDataCallback* callback, std::uint64_t userData);

// Average speed of the last transfer on a handle (tagHTTPFILEINFO::curlHandle), in bytes per
// second; 0.0 for a null handle or on failure.
QVX_API double GetHttpDownloadSpeedBPS(void* curlHandle);

// Fetches url, whose body is the hexadecimal text of an MD5 value as somebody published it, into
// 16 bytes at md5. 1 if the fetch succeeded. The text's length is not tested: a shorter one
// leaves the other bytes as they were, and what follows 32 digits is ignored.
QVX_API int GetHttpFileMD5(const char* url, unsigned char* md5);

// One GET. The body is appended to response, a part of it also after a failure. 1 if the status
// was below 400. A null or empty url and a null response give 0. At most 4 GiB - 1.
QVX_API int PerformHttpGetCommand(const char* url, const CBaseBuffer* caCertificate,
                                  const char* bearerToken, const char* extraHeader, long authType,
                                  const char* userName, const char* password, int useProxy,
                                  long proxyType, const char* proxy, const char* proxyUserName,
                                  const char* proxyPassword, CBaseBuffer* response);

// One POST of the bytes of postData, which may be empty but not null; the rest as above. A
// redirect is followed with a GET, but for status 307 and 308.
QVX_API int PerformHttpPostCommand(const char* url, const CBaseBuffer* caCertificate,
                                   const char* bearerToken, const char* extraHeader, long authType,
                                   const char* userName, const char* password, int useProxy,
                                   long proxyType, const char* proxy, const char* proxyUserName,
                                   const char* proxyPassword, const CBaseBuffer* postData,
                                   CBaseBuffer* response);

}  // extern "C"
