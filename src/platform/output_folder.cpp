#include "platform/output_folder.h"

#include <sys/stat.h>

#include <cerrno>

namespace qvx::platform {

bool OutputFolder::Open(const std::string& path) {
  steps_.clear();
  return top_.Open(path, true);
}

bool OutputFolder::MakeFolder(const Elements& elements) {
  return Enter(elements, elements.size());
}

bool OutputFolder::BeginFile(const Elements& elements, PendingFile& file) {
  if (elements.empty() || !Enter(elements, elements.size() - 1)) return false;
  return file.Create(Place{Deepest(), elements.back()});
}

bool OutputFolder::Enter(const Elements& elements, std::size_t count) {
  std::size_t same = 0;
  while (same < count && same < steps_.size() && steps_[same].name == elements[same]) ++same;
  steps_.resize(same);
  for (std::size_t i = same; i < count; ++i) {
    if (!EnterNext(elements[i])) return false;
  }
  return true;
}

bool OutputFolder::EnterNext(const std::string& name) {
  Step step;
  step.name = name;
  const int above = Deepest();
  if (!step.folder.OpenAt(above, name, false)) {
    if (errno != ENOENT || (mkdirat(above, name.c_str(), 0777) != 0 && errno != EEXIST)) {
      return false;
    }
    if (!step.folder.OpenAt(above, name, false)) return false;
  }
  steps_.push_back(std::move(step));
  return true;
}

int OutputFolder::Deepest() const {
  return steps_.empty() ? top_.Descriptor() : steps_.back().folder.Descriptor();
}

}  // namespace qvx::platform
