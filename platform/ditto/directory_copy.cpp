#include "platform/ditto/directory_copy.hpp"

#include <utility>

#include "platform/ditto/attributes_copy.hpp"

namespace platform::ditto {

DirectoryCopy::DirectoryCopy(Directory source, Directory copy)
    : source_(std::move(source)),
      copy_(std::move(copy)),
      status_(statusOf(source_.descriptor, source_.path)),
      copyIdentity_(identityOf(statusOf(copy_.descriptor, copy_.path))) {}

void DirectoryCopy::leave() {
  if (--users_ > 0)
    return;
  requireUnchanged(source_.descriptor, status_, source_.path);
  copyAttributes(source_.descriptor, source_.path, status_, copy_.descriptor, copy_.path);
}

}  // namespace platform::ditto
