#include "vendor/norvik/tarnet/ITrigger.h"

namespace vendor::norvik::tarnet {

IMPLEMENT_META_INTERFACE(Trigger, "vendor.norvik.tarnet.ITrigger")

}  // namespace vendor::norvik::tarnet
