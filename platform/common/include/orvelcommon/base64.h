// Base64 (standard alphabet, "=" padding), for the module's request fields
// and the daemon's inline upload bodies. Pure functions; thread-safe.
#pragma once

#include <string>

// Returns non-zero on success and writes the decoded length to *out_len; out
// must hold in_len*3/4 bytes.
int EncBase64Dec(const char* in, unsigned in_len, char* out, unsigned* out_len);
std::string EncBase64Enc(const std::string& in);
