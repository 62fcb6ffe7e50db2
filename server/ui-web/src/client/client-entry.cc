// libZemoraOrvelClient.so: the client APIs that entry.cgi serves beside the
// Files API (docs/client-api.md). The method table names every method; each
// API's folder registers its handlers with the bridge, which runs them
// through the same pipeline as the Files API (session, account and service
// gates, answers, downloads). Each call builds a fresh bridge and fresh
// handlers, so nothing survives from one request to the next.
#include "bridge/webapi-bridge.h"
#include "webapi/orvel/label/register.h"
#include "webapi/orvel/recycle/register.h"
#include "webapi/orvel/revision/register.h"
#include "webapi/orvel/sharing/register.h"
#include "webapi/orvel/task/register.h"
#include "zemo/webapi.h"

#define ORVEL_CLIENT_EXPORT __attribute__((visibility("default")))

namespace {
constexpr const char kTask[] = "ZEMO.ZemoraOrvel.Task";
constexpr const char kRecycle[] = "ZEMO.ZemoraOrvel.Recycle";
constexpr const char kRevision[] = "ZEMO.ZemoraOrvel.Revision";
constexpr const char kSharing[] = "ZEMO.ZemoraOrvel.Sharing";
constexpr const char kLabel[] = "ZEMO.ZemoraOrvel.Label";

void RegisterClientHandlers(WebAPIBridge& bridge) {
  RegisterTaskHandlers(bridge);
  RegisterRecycleHandlers(bridge);
  RegisterRevisionHandlers(bridge);
  RegisterSharingHandlers(bridge);
  RegisterLabelHandlers(bridge);
}

}  // namespace

extern "C" {

ORVEL_CLIENT_EXPORT void Process(ZEMO::APIRequest* request, ZEMO::APIResponse* response);

// clang-format off
ORVEL_CLIENT_EXPORT ZemoAPIEntry gTable[] = {
    {kTask, 1, "list", Process},
    {kTask, 1, "get", Process},
    {kTask, 1, "cancel", Process},
    {kRecycle, 1, "list", Process},
    {kRecycle, 1, "restore", Process},
    {kRecycle, 1, "delete", Process},
    {kRecycle, 1, "empty", Process},
    {kRevision, 1, "list", Process},
    {kRevision, 1, "download", Process},
    {kRevision, 1, "restore", Process},
    {kSharing, 1, "list", Process},
    {kSharing, 1, "share", Process},
    {kSharing, 1, "unshare", Process},
    {kSharing, 1, "create_link", Process},
    {kSharing, 1, "update_link", Process},
    {kSharing, 1, "delete_link", Process},
    {kSharing, 1, "unlock_link", Process},
    {kLabel, 1, "list", Process},
    {nullptr, 0, nullptr, nullptr},
};
// clang-format on

ORVEL_CLIENT_EXPORT ZemoAPIEntry* GetAPITable() { return gTable; }

void Process(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  ServeWithFreshBridge(request, response, RegisterClientHandlers);
}

}  // extern "C"
