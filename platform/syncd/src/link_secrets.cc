// See link_secrets.h.
#include "link_secrets.h"

#include <sodium.h>

#include "orvelcommon/sha256.h"

namespace orvel::syncd {
namespace {

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

}  // namespace

Status HashLinkPassword(const std::string& password, std::string* hash) {
  char out[crypto_pwhash_STRBYTES];
  if (!SodiumReady() ||
      crypto_pwhash_str(out, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
    return Status(kErrInternal, "password hashing failed (out of memory)");
  *hash = out;
  return Status::OK();
}

bool LinkPasswordMatches(const std::string& hash, const std::string& password) {
  if (!SodiumReady() || hash.empty()) return false;
  return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::string NewLinkGrant() {
  unsigned char raw[32];
  SodiumReady();
  randombytes_buf(raw, sizeof(raw));
  char hex[sizeof(raw) * 2 + 1];
  sodium_bin2hex(hex, sizeof(hex), raw, sizeof(raw));
  return hex;
}

std::string LinkGrantDigest(const std::string& secret) {
  Sha256 sha;
  sha.Update(secret.data(), secret.size());
  return sha.HexDigest();
}

}  // namespace orvel::syncd
