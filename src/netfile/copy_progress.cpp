#include "qvx/copy_progress.h"

INetFileCopyProgressListener::~INetFileCopyProgressListener() = default;

INetFolderCopyProgressListener::~INetFolderCopyProgressListener() = default;
