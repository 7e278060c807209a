// A file that a client of the file server has open.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/file.h"
#include "qvx/socket_server.h"

namespace qvx::netfile {

// Also held by answers of the send queue that are ranges of it, so that it outlives a close
// request that came behind a read.
class OpenFile : public ISocketSendFile {
 public:
  OpenFile(platform::File file, const platform::OpenMode& mode);
  ~OpenFile() override;

  int GetSendDescriptor() const override { return file_.Descriptor(); }
  const platform::File& Content() const { return file_; }
  bool Readable() const { return mode_.read; }
  bool Writable() const { return mode_.write; }

 private:
  platform::File file_;
  platform::OpenMode mode_;
};

}  // namespace qvx::netfile

// An entry of the server's list of open files.
struct tagCLIENTOPENFILE {
  std::uint32_t nSocketFD;  // the client's descriptor
  std::shared_ptr<qvx::netfile::OpenFile> pFile;
  std::uint64_t nFileHandle;  // what the client knows it by
};
