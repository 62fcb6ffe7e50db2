// Copy and move (see orvel_transfer.h).
#include "orvel_transfer.h"

#include <string>
#include <vector>

#include "bridge/module-log.h"
#include "nimbard/nimbard.h"
#include "orvel_utils.h"
#include "service_call.h"

namespace orvel::module {

const TransferKind kCopyTransfer = {
    "copy", false, "CopyDryRun", "copy dry run failed", "CopyFile", "copy file failed"};
const TransferKind kMoveTransfer = {
    "move", true, "MoveDryRun", "move dry run failed", "MoveFile", "move file failed"};

namespace {

struct TransferParams {
  Json::Value conflict;
  Json::Value files;
  std::string dest;
  bool dry_run = false;
  std::string change_name;
};

TransferParams ReadParams(const TransferKind& kind, BridgeRequest& request) {
  TransferParams p;
  p.conflict = request.GetParamRef("conflict_action", Json::Value());
  p.files = request.GetParamRef("files", Json::Value(Json::arrayValue));
  p.dest = request.GetParamRef("to_parent_folder", "").asString();
  p.dry_run = request.GetParamRef("dry_run", false).asBool();
  if (kind.is_move) p.change_name = request.GetParamRef("change_name", "").asString();
  return p;
}

int DryRun(const TransferKind& kind, Nimbard& client,
           const std::vector<Nimbard::FileSelector>& selection, const std::string& dest,
           BridgeResponse& response) {
  PObject verdict;
  const int rc = kind.is_move ? client.MoveDryRun(selection, dest, verdict)
                              : client.CopyDryRun(selection, dest, verdict);
  if (rc < 0) {
    return ReportServiceFailure(client, response,
                                {kind.log_source, __LINE__,
                                 std::string(kind.dry_run_step) + " failed", kind.dry_run_message});
  }
  Json::Value result(Json::objectValue);
  result["result"] = Json::Value();
  if (!verdict.empty()) {
    const std::string text = verdict.toJsonString();
    Json::Reader reader;
    if (!reader.parse(text, result["result"], true)) {
      Log(Logger::kError, kind.log_source, __LINE__, "Json reader parse '%s' failure.\n",
          text.c_str());
      response.SetError(1000, "json reader parse failure", __LINE__);
      return -1;
    }
  }
  response.SetJsonResponse(result);
  return 0;
}

// Starts the task with the conflict action as a word, or as a map of words
// when the request sent an object. Absent means "autorename".
int Start(const TransferKind& kind, Nimbard& client, const TransferParams& p,
          const std::vector<Nimbard::FileSelector>& selection, std::string& task_id) {
  if (p.conflict.isNull() || p.conflict.isString()) {
    const std::string word = p.conflict.isNull() ? "autorename" : p.conflict.asString();
    return kind.is_move ? client.MoveFile(selection, p.dest, word, p.change_name, task_id)
                        : client.CopyFile(selection, p.dest, word, task_id);
  }
  PObject conflict = PObject::MakeMap();
  for (const std::string& name : p.conflict.getMemberNames()) {
    conflict[name] = p.conflict[name].asString();
  }
  return kind.is_move ? client.MoveFile(selection, p.dest, conflict, p.change_name, task_id)
                      : client.CopyFile(selection, p.dest, conflict, task_id);
}

}  // namespace

int HandleTransfer(const TransferKind& kind, const RequestAuthentication& auth,
                   const std::string& sudo_user, BridgeRequest& request, BridgeResponse& response) {
  const TransferParams params = ReadParams(kind, request);
  if (params.files.empty() || params.dest.empty()) {
    Log(Logger::kError, kind.log_source, __LINE__,
        "no file seleted or parent folder does not choose");
    response.SetError(114, "no file seleted or parent folder does not choose", __LINE__);
    return -1;
  }
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, sudo_user);
  std::vector<Nimbard::FileSelector> selection;
  for (const Json::Value& file : params.files) {
    const std::string path = file.asString();
    if (path.empty()) {
      Log(Logger::kError, kind.log_source, __LINE__, "path is required");
      response.SetError(114, "path is required", __LINE__);
      return -1;
    }
    selection.emplace_back(path);
  }
  if (params.dry_run) return DryRun(kind, client, selection, params.dest, response);
  std::string task_id;
  if (Start(kind, client, params, selection, task_id) < 0) {
    return ReportServiceFailure(
        client, response,
        {kind.log_source, __LINE__, std::string(kind.op_step) + " failed", kind.op_message});
  }
  Json::Value result(Json::objectValue);
  result["async_task_id"] = task_id;
  response.SetJsonResponse(result);
  return 0;
}

}  // namespace orvel::module
