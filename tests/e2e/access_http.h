// A minimal HTTP/1.0 client for the access matrix: one POST per connection to
// lighttpd on 127.0.0.1, the whole answer (status line, headers, body) read
// until the server closes. The matrix sends close to a thousand requests;
// spawning curl for each would cost more than the requests themselves.
// Thread-safe (no shared state).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

using FormFields = std::vector<std::pair<std::string, std::string>>;

// POSTs fields as application/x-www-form-urlencoded, or as multipart/form-data
// when upload_name is not empty (the file part "file" with that file name and
// upload_content). Returns the raw answer; "" when the server could not be
// reached (the test fails then). source > 1 sends from 127.0.0.<source>.
std::string HttpPostForm(int port, const FormFields& fields, const std::string& upload_name = "",
                         const std::string& upload_content = "", uint8_t source = 1);

// The status code of a raw answer (0 when it has no status line).
int HttpStatus(const std::string& answer);

}  // namespace orvel::test
