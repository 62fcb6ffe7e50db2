// Registration of the "ZEMO.ZemoraOrvel.Revision" handlers.
#include "webapi/orvel/revision/register.h"

#include "webapi/orvel/revision/download.h"
#include "webapi/orvel/revision/list.h"
#include "webapi/orvel/revision/restore.h"

void RegisterRevisionHandlers(WebAPIBridge& bridge) {
  bridge.AddHandler(new RevisionListHandler());
  bridge.AddHandler(new RevisionDownloadHandler());
  bridge.AddHandler(new RevisionRestoreHandler());
}
