// Registration of the "ZEMO.ZemoraOrvel.Label" handlers.
#include "webapi/orvel/label/register.h"

#include "webapi/orvel/label/list.h"

void RegisterLabelHandlers(WebAPIBridge& bridge) { bridge.AddHandler(new LabelListHandler()); }
