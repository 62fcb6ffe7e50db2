// SHA-256 over OpenSSL's EVP interface, and hashing of a whole descriptor.
#include "orvelcommon/sha256.h"

#include <openssl/evp.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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

namespace {

constexpr char kDigestAttr[] = "user.orvel.sha256";

// "<size> <mtime seconds>.<nanoseconds>": what the digest was taken of.
bool Fingerprint(int fd, std::string* out, uint64_t* size) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return false;
  *out = std::to_string(st.st_size) + " " + std::to_string(st.st_mtim.tv_sec) + "." +
         std::to_string(st.st_mtim.tv_nsec);
  if (size) *size = static_cast<uint64_t>(st.st_size);
  return true;
}

}  // namespace

bool StoreDigest(int fd, const std::string& hex) {
  std::string value;
  if (!Fingerprint(fd, &value, nullptr)) return false;
  value += " " + hex;
  return ::fsetxattr(fd, kDigestAttr, value.data(), value.size(), 0) == 0;
}

bool LoadDigest(int fd, std::string* hex, uint64_t* size) {
  char buf[160];
  ssize_t n = ::fgetxattr(fd, kDigestAttr, buf, sizeof(buf));
  std::string now;
  if (n <= 0 || !Fingerprint(fd, &now, size)) return false;
  std::string value(buf, static_cast<size_t>(n));
  if (value.size() != now.size() + 65 || value.compare(0, now.size(), now) != 0 ||
      value[now.size()] != ' ') {
    return false;
  }
  *hex = value.substr(now.size() + 1);
  return true;
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
