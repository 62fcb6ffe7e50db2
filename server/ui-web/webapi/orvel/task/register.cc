// Registration of the "ZEMO.ZemoraOrvel.Task" handlers.
#include "webapi/orvel/task/register.h"

#include "webapi/orvel/task/get.h"

void RegisterTaskHandlers(WebAPIBridge& bridge) { bridge.AddHandler(new TaskGetHandler()); }
