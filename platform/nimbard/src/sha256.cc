// SHA-256 over OpenSSL's EVP interface, and hashing of a whole descriptor.
#include "nimbard/sha256.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace orvel {

Sha256::Sha256() : ctx_(EVP_MD_CTX_new()) {
  EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(ctx_), EVP_sha256(), nullptr);
}

Sha256::~Sha256() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(ctx_)); }

void Sha256::Update(const void* data, size_t len) {
  EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(ctx_), data, len);
}

std::string Sha256::HexDigest() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(ctx_), digest, &len);
  static const char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(len * 2);
  for (unsigned int i = 0; i < len; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 15]);
  }
  return hex;
}

int64_t HashFileDescriptor(int fd, std::string* hex) {
  // One buffer per thread: the daemon hashes many files, often small ones.
  thread_local std::vector<unsigned char> block(1 << 20);
  Sha256 sha;
  int64_t total = 0;
  for (;;) {
    ssize_t n = ::read(fd, block.data(), block.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    sha.Update(block.data(), static_cast<size_t>(n));
    total += n;
  }
  *hex = sha.HexDigest();
  return total;
}

}  // namespace orvel
