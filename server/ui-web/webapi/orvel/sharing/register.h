// The handlers of "ZEMO.ZemoraOrvel.Sharing" (docs/api-sharing.md).
#pragma once

#include "bridge/webapi-bridge.h"

// Adds one handler per method of the API to the bridge, which owns them.
void RegisterSharingHandlers(WebAPIBridge& bridge);
