// Registration of the "ZEMO.ZemoraOrvel.Task" handlers.
#include "webapi/orvel/task/register.h"

#include "webapi/orvel/task/cancel.h"
#include "webapi/orvel/task/get.h"
#include "webapi/orvel/task/list.h"

void RegisterTaskHandlers(WebAPIBridge& bridge) {
  bridge.AddHandler(new TaskListHandler());
  bridge.AddHandler(new TaskGetHandler());
  bridge.AddHandler(new TaskCancelHandler());
}
