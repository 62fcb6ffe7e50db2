// Error codes entry.cgi answers with itself (the "code" of the error
// envelope). Modules add their own; docs/framework.md lists these.
#pragma once

namespace zemo::cgi {

constexpr int kErrBadApiParams = 101;    // api, method or version missing or malformed
constexpr int kErrNoSuchApi = 102;       // no such API
constexpr int kErrNoSuchMethod = 103;    // the API has no such method
constexpr int kErrBadVersion = 104;      // the method does not exist in this version
constexpr int kErrBadParam = 114;        // a built-in method's parameter is missing or wrong
constexpr int kErrCheckFailed = 120;     // a module's parameter check refused the request
constexpr int kErrBadRequest = 400;      // malformed body, upload over the limit
constexpr int kErrInternal = 401;        // the framework could not serve the request
constexpr int kErrWrongPassword = 402;   // login: unknown account or wrong password
constexpr int kErrAccountDisabled = 403; // login: account disabled or expired
constexpr int kErrLoginThrottled = 407;  // login: too many failures, wait or locked

}  // namespace zemo::cgi
