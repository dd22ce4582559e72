#include "qimmisc/QIMMiscApi.h"

#include "diagnostics/LibraryObjects.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
int refCount_ = 0;
}  // namespace

void QIMMiscApi::init() {
  QIM_ASSERT(refCount_>=0, "refCount_ should not be negative");
  if (refCount_ == 0) detail::createLibraryObjects();
  ++refCount_;
}

void QIMMiscApi::exit() {
  --refCount_;
  QIM_ASSERT(refCount_>=0, "refCount_ should not be negative");
  if (refCount_ == 0) detail::destroyLibraryObjects();
}

int QIMMiscApi::refCount() { return refCount_; }

}  // namespace QIM
