// Registration of the "ZEMO.ZemoraOrvel.Sharing" handlers.
#include "webapi/orvel/sharing/register.h"

#include "webapi/orvel/sharing/create-link.h"
#include "webapi/orvel/sharing/delete-link.h"
#include "webapi/orvel/sharing/list.h"
#include "webapi/orvel/sharing/share.h"
#include "webapi/orvel/sharing/unlock-link.h"
#include "webapi/orvel/sharing/unshare.h"
#include "webapi/orvel/sharing/update-link.h"

void RegisterSharingHandlers(WebAPIBridge& bridge) {
  bridge.AddHandler(new SharingListHandler());
  bridge.AddHandler(new SharingShareHandler());
  bridge.AddHandler(new SharingUnshareHandler());
  bridge.AddHandler(new SharingCreateLinkHandler());
  bridge.AddHandler(new SharingUpdateLinkHandler());
  bridge.AddHandler(new SharingDeleteLinkHandler());
  bridge.AddHandler(new SharingUnlockLinkHandler());
}
