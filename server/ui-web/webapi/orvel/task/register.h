// The handlers of "ZEMO.ZemoraOrvel.Task" (docs/api-task.md).
#pragma once

#include "bridge/webapi-bridge.h"

// Adds one handler per method of the API to the bridge, which owns them.
void RegisterTaskHandlers(WebAPIBridge& bridge);
