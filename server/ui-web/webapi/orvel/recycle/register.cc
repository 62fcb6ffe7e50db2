// Registration of the "ZEMO.ZemoraOrvel.Recycle" handlers.
#include "webapi/orvel/recycle/register.h"

#include "webapi/orvel/recycle/delete.h"
#include "webapi/orvel/recycle/empty.h"
#include "webapi/orvel/recycle/list.h"
#include "webapi/orvel/recycle/restore.h"

void RegisterRecycleHandlers(WebAPIBridge& bridge) {
  bridge.AddHandler(new RecycleListHandler());
  bridge.AddHandler(new RecycleRestoreHandler());
  bridge.AddHandler(new RecycleDeleteHandler());
  bridge.AddHandler(new RecycleEmptyHandler());
}
