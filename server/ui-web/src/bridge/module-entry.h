// The module's exported surface as the web API framework sees it: the method
// table, the parameter-check table and the per-request entry Process. The
// tables are constant data; Process serves one request per call.
#pragma once

#include "zemo/webapi.h"

#define ORVEL_MODULE_EXPORT __attribute__((visibility("default")))

extern "C" {
// 67 rows (22 methods for versions 1, 2 and 3, then "list_backup_tasks" for
// version 3), then a row of zeros.
ORVEL_MODULE_EXPORT extern ZemoAPIEntry gTable[];
// 67 rows (version 3 with "list_backup_tasks", then 2, then 1) and a row of
// zeros.
ORVEL_MODULE_EXPORT extern ZemoAPICheckEntry gCheckTable[];

ORVEL_MODULE_EXPORT ZemoAPIEntry* GetAPITable();
ORVEL_MODULE_EXPORT ZemoAPICheckEntry* GetAPICheckTable();
// Serves one request: builds the bridge and the handlers, dispatches, writes
// the answer and tears everything down.
ORVEL_MODULE_EXPORT void Process(ZEMO::APIRequest* request, ZEMO::APIResponse* response);
}

// The parameter check of "convert_office": 1 to let the request through, 0
// after setting error 120 with {"name", "reason"} on the response.
int ConvertOfficeParamCheck(ZEMO::APIRequest* request, ZEMO::APIResponse* response);
