// The handlers of "ZEMO.ZemoraOrvel.Label" (docs/api-label.md).
#pragma once

#include "bridge/webapi-bridge.h"

// Adds one handler per method of the API to the bridge, which owns them.
void RegisterLabelHandlers(WebAPIBridge& bridge);
