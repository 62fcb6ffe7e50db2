// link_secrets: the secrets of password links. A link's password is kept
// only as a crypto_pwhash string; a visitor who gives it receives a grant, a
// random secret of which only a SHA-256 digest is stored (the secret itself
// has 256 random bits, so a fast digest is enough to keep a stolen database
// from replaying it). Thread-safe (libsodium is initialised once).
#pragma once

#include <string>

#include "orvelcommon/status.h"

namespace orvel::syncd {

// Longest password a link accepts (bytes); longer ones are refused before hashing.
constexpr size_t kMaxLinkPasswordBytes = 1024;

// The crypto_pwhash string of password (kErrInternal when hashing fails).
Status HashLinkPassword(const std::string& password, std::string* hash);
// Whether password matches the stored hash.
bool LinkPasswordMatches(const std::string& hash, const std::string& password);

// A new grant secret (64 hex characters) and the digest stored for a secret.
std::string NewLinkGrant();
std::string LinkGrantDigest(const std::string& secret);

}  // namespace orvel::syncd
