// Registration of the "ZEMO.ZemoraOrvel.Revision" handlers.
#include "webapi/orvel/revision/register.h"

void RegisterRevisionHandlers(WebAPIBridge& /*bridge*/) {}
