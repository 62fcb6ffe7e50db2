// Registration of the "ZEMO.ZemoraOrvel.Recycle" handlers.
#include "webapi/orvel/recycle/register.h"

void RegisterRecycleHandlers(WebAPIBridge& /*bridge*/) {}
