// A web API module for the framework's tests: "ZEMO.Test.Echo" answers with
// what the framework handed it (caller, parameters, upload, process ids), can
// print a raw answer, throw, or be refused by its parameter check.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "zemo/nas.h"
#include "zemo/webapi.h"

namespace {

const char kApi[] = "ZEMO.Test.Echo";

Json::Value UploadInfo(ZEMO::APIRequest* request) {
  Json::Value info(Json::objectValue);
  ZEMO::APIUpload upload(request);
  Json::Value fields;
  std::string tmp;
  info["param_rc"] = upload.GetUploadParam(fields);
  info["file_rc"] = upload.GetUploadFile(tmp);
  info["fields"] = fields;
  info["tmp"] = tmp;
  info["name"] = request->UploadFileName();
  struct stat st;
  if (!tmp.empty() && ::stat(tmp.c_str(), &st) == 0) {
    info["size"] = static_cast<Json::UInt64>(st.st_size);
    info["owner"] = static_cast<Json::UInt>(st.st_uid);
    if (st.st_size <= 4096) {
      std::ifstream in(tmp, std::ios::binary);
      std::stringstream text;
      text << in.rdbuf();
      info["content"] = text.str();
    }
  }
  return info;
}

void Echo(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["api"] = request->GetAPIClass();
  data["method"] = request->GetAPIMethod();
  data["version"] = request->GetAPIVersion();
  data["params"] = request->GetParams();
  data["user"] = request->GetLoginUserName();
  data["uid"] = request->GetLoginUID();
  data["admin"] = request->IsAdmin();
  data["timed_out"] = request->IsTimeout();
  data["remote_ip"] = request->GetRemoteIP();
  data["proto"] = request->GetURLProto("http");
  data["host"] = request->GetURLHost("");
  data["port"] = request->GetURLPort(0);
  data["ruid"] = static_cast<Json::UInt>(::getuid());
  data["euid"] = static_cast<Json::UInt>(::geteuid());
  data["egid"] = static_cast<Json::UInt>(::getegid());
  data["is_upload"] = request->IsUploadRequest();
  if (request->IsUploadRequest()) data["upload"] = UploadInfo(request);
  response->SetHeader("X-Echo", "yes");
  response->SetSuccess(data);
}

void Process(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  const std::string& method = request->GetAPIMethod();
  if (method == "raw") {
    response->SetEnableOutput(false);
    std::printf("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\nraw body");
    return;
  }
  if (method == "file") {
    response->SetEnableOutput(false);
    std::string path = request->GetParamRef("path", Json::Value("")).asString();
    if (HTTPFileOutputer().Output(path, HTTPFileOutputer::GetMimeType(path)) != 0) {
      std::printf("Status: 404 Not Found\r\n\r\n");
    }
    return;
  }
  if (method == "throw") throw std::runtime_error("echo module failure");
  if (method == "nothing") return;
  Echo(request, response);
}

int Check(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  if (!request->HasParam("bad")) return 1;
  Json::Value details(Json::objectValue);
  details["name"] = "bad";
  details["reason"] = "condition";
  response->SetError(120, details);
  return 0;
}

int CheckAll(ZEMO::APIRequest*, ZEMO::APIResponse*) { return 1; }

ZemoAPIEntry gTable[] = {
    {kApi, 1, "echo", Process},
    {kApi, 2, "echo", Process},
    {kApi, 1, "raw", Process},
    {kApi, 1, "file", Process},
    {kApi, 1, "throw", Process},
    {kApi, 1, "nothing", Process},
    {kApi, 3, "check", Process},
    {"ZEMO.API.Info", 2, "query", Process},  // a built-in API: must be ignored
    {nullptr, 0, nullptr, nullptr},
};

ZemoAPICheckEntry gCheckTable[] = {
    {kApi, 3, "check", Check, 0, 0},
    {kApi, 1, "echo", CheckAll, 0, 0},
    {nullptr, 0, nullptr, nullptr, 0, 0},
};

}  // namespace

extern "C" ZemoAPIEntry* GetAPITable() { return gTable; }
extern "C" ZemoAPICheckEntry* GetAPICheckTable() { return gCheckTable; }
