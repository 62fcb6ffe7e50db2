// Base64 through libsodium; see base64.h.
#include "orvelcommon/base64.h"

#include <sodium.h>

int EncBase64Dec(const char* in, unsigned in_len, char* out, unsigned* out_len) {
  size_t bin_len = 0;
  const char* end = nullptr;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(out), static_cast<size_t>(in_len) * 3 / 4 + 1,
                        in, in_len, nullptr, &bin_len, &end, sodium_base64_VARIANT_ORIGINAL) != 0 ||
      end != in + in_len) {
    return 0;
  }
  *out_len = static_cast<unsigned>(bin_len);
  return 1;
}

std::string EncBase64Enc(const std::string& in) {
  std::string out(sodium_base64_ENCODED_LEN(in.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(out.data(), out.size(), reinterpret_cast<const unsigned char*>(in.data()),
                    in.size(), sodium_base64_VARIANT_ORIGINAL);
  out.resize(out.size() - 1);  // drop the NUL
  return out;
}
