// The shared upload request builder (see orvel_upload_request.h).
#include "orvel_upload_request.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "bridge/module-log.h"
#include "nimbard/nimbard.h"
#include "orvel_utils.h"

namespace orvel::module {

const UploadRequestOptions kCreateRequestOptions = {"create", true, true, true};
const UploadRequestOptions kUploadRequestOptions = {"upload", false, false, false};

namespace {

void SetTimes(BridgeRequest& request, const File& file, PObject& out) {
  if (request.HasParam("created_time")) {
    out["created_time"] = request.GetParamRef("created_time", 0).asUInt64();
  }
  if (request.HasParam("access_time")) {
    out["access_time"] = request.GetParamRef("access_time", 0).asUInt64();
  }
  uint64_t mtime = file.GetLastModifiedTime();
  if (request.HasParam("modified_time")) {
    mtime = request.GetParamRef("modified_time", 0).asUInt64();
  }
  if (request.HasParam("modified_time") || mtime != 0) {
    PObject block = PObject::MakeMap();
    block["refer"] = false;
    block["mtime"] = mtime;
    out["mtime"] = block;
  }
}

void SetProperties(BridgeRequest& request, PObject& out) {
  const Json::Value properties = request.GetParamRef("properties", Json::Value());
  PObject dict = PObject::MakeMap();
  if (properties.isObject()) {
    for (const std::string& name : properties.getMemberNames()) {
      dict[name] = properties[name].asString();
    }
  }
  out["properties"] = dict;
}

int SetLabels(const char* source, BridgeRequest& request, PObject& out) {
  PObject labels = PObject::MakeArray();
  for (const Json::Value& element : request.GetParamRef("labels", Json::Value())) {
    Nimbard::LabelEditAction action;
    PObject converted;
    if (JsonReqToLabelAction(element, action) < 0 ||
        Nimbard::LabelActionToPObject(action, converted) < 0) {
      Log(Logger::kError, source, __LINE__, "invalid label format\n");
      return -1;
    }
    labels.push_back(converted);
  }
  out["labels"] = labels;
  return 0;
}

int SetStarred(const UploadRequestOptions& options, BridgeRequest& request, PObject& out) {
  const Json::Value starred = request.GetParamRef("starred", Json::Value());
  if (options.keep_boolean_starred && starred.isBool()) {
    out["starred"] = starred.asBool();
    return 0;
  }
  Nimbard::StarEditAction action;
  PObject converted;
  if (JsonReqToStarAction(starred, action) < 0 ||
      Nimbard::StarActionToPObject(action, converted) < 0) {
    Log(Logger::kError, options.log_source, __LINE__, "invalid starred format\n");
    return -1;
  }
  PObject list = PObject::MakeArray();
  list.push_back(converted);
  out["starred"] = list;
  return 0;
}

// The keys every upload request may carry, whatever its type.
int SetCommonKeys(const UploadRequestOptions& options, BridgeRequest& request, const File& file,
                  PObject& out) {
  SetTimes(request, file, out);
  if (request.HasParam("encrypted")) {
    out["encrypted"] = request.GetParamRef("encrypted", false).asBool();
  }
  if (options.always_set_removed) {
    out["removed"] = request.GetParamRef("removed", false).asBool();
  }
  if (options.with_permanent_link && request.HasParam("permanent_link")) {
    out["permanent_link"] = request.GetParamRef("permanent_link", "").asString();
  }
  if (request.HasParam("properties")) SetProperties(request, out);
  if (request.HasParam("labels") && SetLabels(options.log_source, request, out) < 0) return -1;
  if (request.HasParam("starred") && SetStarred(options, request, out) < 0) return -1;
  return 0;
}

}  // namespace

std::string ConflictPolicy(const std::string& conflict_action) {
  return conflict_action == "version" ? std::string("overwrite_server") : conflict_action;
}

int PrepareUploadRequest(const UploadRequestOptions& options, BridgeRequest& request,
                         const File& file, PObject& out) {
  const std::string path = request.GetParamRef("path", "").asString();
  const std::string type = request.GetParamRef("type", "").asString();
  const std::string conflict = request.GetParamRef("conflict_action", "stop").asString();
  if (SetCommonKeys(options, request, file, out) < 0) return -1;
  if (request.HasParam("mute")) out["mute"] = request.GetParamRef("mute", false).asBool();
  const bool is_dir = (type == "folder");
  out["path"] = path;
  out["sync_id"] = 0;
  out["max_id"] = 0;
  out["conflict_policy"] = ConflictPolicy(conflict);
  out["is_dir"] = is_dir;
  out["file_type"] = is_dir ? "dir" : "file";
  if (is_dir) return 0;
  out["file_data_path"] = file.GetPath();
  if (PrepareFileBlock(options.log_source, file, out) < 0) {
    Log(Logger::kError, options.log_source, __LINE__, "failed to prepare file block for '%s'.\n",
        file.GetPath().c_str());
    return -1;
  }
  return 0;
}

int PrepareFileBlock(const char* log_source, const File& file, PObject& out) {
  SimpleFileReader reader;
  std::string hash;
  reader.setFile(file.GetPath());
  reader.setHashString(hash);
  if (reader.readFile() < 0) {
    const int err = errno;
    Log(Logger::kError, log_source, __LINE__, "failed to read file for '%s', try it again %d %s\n",
        file.GetPath().c_str(), err, strerror(err));
    return -1;
  }
  PObject block = PObject::MakeMap();
  block["size"] = file.GetSize();
  block["hash"] = hash;
  block["refer"] = false;
  block["is_delta"] = false;
  block["real_size"] = file.GetSize();
  out["file"] = block;
  return 0;
}

}  // namespace orvel::module
