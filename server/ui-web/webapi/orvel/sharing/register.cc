// Registration of the "ZEMO.ZemoraOrvel.Sharing" handlers.
#include "webapi/orvel/sharing/register.h"

void RegisterSharingHandlers(WebAPIBridge& /*bridge*/) {}
