#include "stream.h"

#include <cerrno>
#include <cstring>

#include "command.h"

namespace qvx::tool {

Stream OpenStream(const std::string& path, const char* mode) {
  Stream stream(std::fopen(path.c_str(), mode), &std::fclose);
  if (!stream) throw CommandError("cannot open " + path + ": " + std::strerror(errno));
  return stream;
}

}  // namespace qvx::tool
