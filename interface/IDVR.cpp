#include "IDVR.h"

namespace dvrspace {

IMPLEMENT_META_INTERFACE(DVR, "dvrspace.IDVR")

}  // namespace dvrspace
