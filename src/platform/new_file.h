// A file that appears under its name when it is complete, in place of a file or link that stood
// there, and leaves nothing behind when it is given up. For one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/file.h"

namespace qvx::platform {

class NewFile {
 public:
  // A native path. Folders, devices and their like, and files that may not be written, are left
  // alone: the object is then not good, as where the folder can't take a file. Throws
  // std::bad_alloc.
  explicit NewFile(std::string path);
  // Removes what was not installed.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // False from the first failure on.
  bool IsGood() const { return good_; }

  // Collects what is to be written; nothing once the object is not good.
  void Append(const void* data, std::size_t size);

  // Writes what is left and gives the file its name. False if any step failed.
  bool Install();

 private:
  void Flush();

  std::string path_;
  std::string temporary_;
  File file_;
  std::unique_ptr<unsigned char[]> block_;
  std::size_t filled_ = 0;
  std::uint64_t offset_ = 0;
  bool good_ = false;
};

}  // namespace qvx::platform
