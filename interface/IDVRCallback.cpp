#include "IDVRCallback.h"

namespace dvrspace {

IMPLEMENT_META_INTERFACE(DVRCallback, "dvrspace.IDVRCallback")

}  // namespace dvrspace
