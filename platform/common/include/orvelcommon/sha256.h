// Sha256: the content hash of the platform (lower-case hex SHA-256), computed
// with OpenSSL, which uses the CPU's SHA instructions where it has them.
// One object per stream; not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvel {

class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void Update(const void* data, size_t len);
  // The digest of everything added, as 64 hex characters. Call once.
  std::string HexDigest();

 private:
  void* ctx_;  // EVP_MD_CTX
};

// A digest recorded on a file (extended attribute "user.orvel.sha256") by the
// process that wrote it, together with the size and modification time it
// had then. The web framework records one on every upload it receives, so
// that neither the module nor the daemon reads gigabytes again only to hash
// them. It is the writer's word: the daemon takes it only from the peers it
// trusts to act for users, on a staged file with no other link (staged_data.h).
// StoreDigest: true when recorded (file systems without user attributes
// simply keep none). LoadDigest: true only when size and time still match.
bool StoreDigest(int fd, const std::string& hex);
bool LoadDigest(int fd, std::string* hex, uint64_t* size);

// Reads fd from its current offset to the end, hashing it. Returns the number
// of bytes read, or -1 with errno set. *hex receives the digest.
int64_t HashFileDescriptor(int fd, std::string* hex);

}  // namespace orvel
