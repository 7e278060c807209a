#include "netfile/open_file.h"

#include <utility>

namespace qvx::netfile {

OpenFile::OpenFile(platform::File file, const platform::OpenMode& mode)
    : file_(std::move(file)), mode_(mode) {}

OpenFile::~OpenFile() = default;

}  // namespace qvx::netfile
