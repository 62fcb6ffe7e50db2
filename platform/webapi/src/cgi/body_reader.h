// Reading a request body (from the CGI's stdin, or from the FastCGI
// connection's STDIN records, through BodyInput): urlencoded form fields, or a
// multipart form whose first file part is streamed to a temp file (constant
// memory, size-limited) while its other fields are collected. Other content
// types are left unread. One request per process; not thread-safe.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "cgi/cgi_env.h"
#include "cgi/form_params.h"
#include "cgi/temp_file.h"
#include "orvelcommon/status.h"

namespace zemo::cgi {

// Where the body's bytes come from: fd 0 in CGI mode, the STDIN records of
// the connection in the FastCGI worker.
class BodyInput {
 public:
  virtual ~BodyInput() = default;
  // Up to cap bytes into buf: how many, 0 at the end of the input, or -1
  // with errno set.
  virtual ssize_t Read(char* buf, size_t cap) = 0;
};

// A body read from a file descriptor (stdin). Does not own it.
class FdBodyInput : public BodyInput {
 public:
  explicit FdBodyInput(int fd) : fd_(fd) {}
  ssize_t Read(char* buf, size_t cap) override;

 private:
  int fd_;
};

struct BodyLimits {
  std::string tmp_dir;          // where the uploaded file goes (<data>/@tmp)
  uint64_t upload_max = 0;      // largest file part; 0 = no limit
  uint64_t form_max = 8 << 20;  // largest urlencoded body / sum of form fields
  bool chown_upload = false;    // give the temp file to owner_uid/owner_gid
  uid_t owner_uid = 0;
  gid_t owner_gid = 0;
};

struct RequestBody {
  RawParams fields;                  // form fields of the body
  std::unique_ptr<TempFile> upload;  // the received file, if any
  std::string upload_name;           // its file name as the client sent it
  std::string upload_field;          // the form field that carried it
};

// Reads the body of a POST from input according to env. Errors: code 400
// for a malformed, truncated or oversized body (the message says which), or
// an I/O error status (negative code) for the input or the temp file.
orvel::Status ReadRequestBody(const CgiEnv& env, BodyInput* input, const BodyLimits& limits,
                              RequestBody* out);
// The same from a file descriptor.
orvel::Status ReadRequestBody(const CgiEnv& env, int fd, const BodyLimits& limits,
                              RequestBody* out);

}  // namespace zemo::cgi
