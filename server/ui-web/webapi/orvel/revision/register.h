// The handlers of "ZEMO.ZemoraOrvel.Revision" (docs/api-revision.md).
#pragma once

#include "bridge/webapi-bridge.h"

// Adds one handler per method of the API to the bridge, which owns them.
void RegisterRevisionHandlers(WebAPIBridge& bridge);
