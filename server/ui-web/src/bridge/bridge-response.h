// BridgeResponse: what a handler answers, written out by WebAPIBridge after
// the handler returns: a JSON object, a file, or a folder streamed as a zip
// archive, plus headers, an error (code 0 = none) and paths to delete once
// the answer is out. One object per request; not thread-safe.
#pragma once

#include <json/json.h>

#include <string>
#include <utility>
#include <vector>

struct CookieOptions {
  std::string path;
  std::string domain;
  int max_age = -1;  // seconds; -1 = a session cookie
  bool secure = false;
  bool http_only = false;
};

class BridgeResponse {
 public:
  enum ResponseType { kJson = 0, kFile = 1, kArchive = 2 };
  using Header = std::pair<std::string, std::string>;

  void SetType(ResponseType type) { type_ = type; }
  ResponseType GetType() const { return type_; }

  // Records the error; line is the source line that detected it.
  void SetError(int code, const std::string& message, int line);
  bool IsErrorSet() const { return error_code_ != 0; }
  int GetErrorCode() const { return error_code_; }
  const std::string& GetErrorMessage() const { return error_message_; }
  int GetErrorLine() const { return error_line_; }

  // Makes this a JSON response holding a copy of value.
  void SetJsonResponse(const Json::Value& value);
  // The same without copying a large answer (listings).
  void SetJsonResponse(Json::Value&& value);
  const Json::Value& GetJsonObject() const { return json_; }
  Json::Value& MutableJsonObject() { return json_; }
  // Makes this a JSON response given as its compact text (written with
  // zemo/json_text.h straight from records; see the listings).
  void SetJsonText(std::string text);
  const std::string& GetJsonText() const { return json_text_; }

  // Appends a header; the same name may be set more than once.
  void SetHeader(std::string name, std::string value);
  const std::vector<Header>& GetHeaders() const { return headers_; }
  // Appends "Set-Cookie: name=<url-encoded value>[; path=<path>]".
  void SetCookie(const std::string& name, const std::string& value, const CookieOptions& options);
  void SetCookie(const std::string& name, const std::string& value);

  // Registers a path to delete after the answer is out; "" is ignored.
  void AddAutoRemovePath(const std::string& path);
  bool IsAutoRemove() const { return !auto_remove_paths_.empty(); }
  const std::vector<std::string>& GetAutoRemovePaths() const { return auto_remove_paths_; }

  // The code page argument is not kept: the bridge always takes the code
  // page of an archive from the user's settings.
  void SetArchiveResponse(const std::string& name, const std::string& path,
                          const std::string& codepage, bool auto_remove);
  void SetFileResponse(const std::string& name, const std::string& path, bool force_download,
                       bool auto_remove);

  void SetOutputJsonError(bool enable) { output_json_error_ = enable; }
  bool IsOutputJsonError() const { return output_json_error_; }
  bool IsForceDownload() const { return force_download_; }
  const std::string& GetArchiveName() const { return archive_name_; }
  const std::string& GetArchivePath() const { return archive_path_; }
  const std::string& GetArchiveCodepage() const { return archive_codepage_; }
  const std::string& GetFileName() const { return file_name_; }
  const std::string& GetFilePath() const { return file_path_; }

 private:
  ResponseType type_ = kJson;
  int error_code_ = 0;
  std::string error_message_;
  int error_line_ = -1;
  std::string archive_name_, archive_path_, archive_codepage_;
  std::string file_name_, file_path_;
  bool force_download_ = true;
  bool output_json_error_ = false;
  std::vector<std::string> auto_remove_paths_;
  Json::Value json_;
  std::string json_text_;
  std::vector<Header> headers_;
};
