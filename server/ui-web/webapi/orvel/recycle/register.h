// The handlers of "ZEMO.ZemoraOrvel.Recycle" (docs/api-recycle.md).
#pragma once

#include "bridge/webapi-bridge.h"

// Adds one handler per method of the API to the bridge, which owns them.
void RegisterRecycleHandlers(WebAPIBridge& bridge);
