// Path resolution under ZEMO_ROOT, configuration defaults, base64 and hashing.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "nimbard/file.h"
#include "nimbard/platform.h"
#include "orvelcommon/sha256.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/zemo_root.h"

namespace {

class ConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/orvel-conf-XXXXXX";
    root_ = ::mkdtemp(tmpl);
    ::setenv("ZEMO_ROOT", root_.c_str(), 1);
  }
  void TearDown() override {
    File::Remove(root_);
    ::unsetenv("ZEMO_ROOT");
  }
  void WriteConf(const std::string& text) {
    std::string etc = root_ + "/var/packages/ZemoraOrvel/target/etc";
    ::system(("mkdir -p " + etc).c_str());
    std::ofstream(etc + "/orvel.conf") << text;
  }
  std::string root_;
};

TEST_F(ConfigTest, ResolvesFixedPathsUnderRoot) {
  EXPECT_EQ(orvel::ZemoPath("/tmp/cloud-syncservice"), root_ + "/tmp/cloud-syncservice");
  EXPECT_EQ(orvel::ResolveSocketAddress("unix:/tmp/cloud-syncservice"),
            root_ + "/tmp/cloud-syncservice");
  EXPECT_EQ(orvel::ZemoPath("relative/x"), "relative/x");
  ::setenv("ZEMO_ROOT", "", 1);
  EXPECT_EQ(orvel::ZemoPath("/etc/mime.types"), "/etc/mime.types");
}

TEST_F(ConfigTest, DefaultsWithoutFile) {
  SyncConfigMgr conf;
  ASSERT_EQ(conf.Init(), 0);
  EXPECT_EQ(conf.GetDataDirPath(), root_ + "/volume1/ZemoraOrvel");
  EXPECT_EQ(conf.GetUserDbPath(), root_ + "/volume1/ZemoraOrvel/@db/users.db");
  EXPECT_EQ(conf.GetDBBackendString(), "sqlite");
  EXPECT_EQ(conf.GetWebAccount(), "www-data");
  EXPECT_EQ(conf.GetUploadMaxBytes(), 0u);
}

TEST_F(ConfigTest, ExpandsRootAndRejectsBrokenFile) {
  WriteConf(R"({"data_dir": "$ZEMO_ROOT/srv/data", "upload_max_bytes": 1024,
                "tpx_shares": [{"name": "pub", "path": "$ZEMO_ROOT/share", "users": ["*"]}]})");
  SyncConfigMgr conf;
  ASSERT_EQ(conf.Init(), 0);
  EXPECT_EQ(conf.GetDataDirPath(), root_ + "/srv/data");
  EXPECT_EQ(conf.GetDbConnectParam(), root_ + "/srv/data/@db");
  EXPECT_EQ(conf.GetUploadMaxBytes(), 1024u);
  ASSERT_EQ(conf.GetTpxShares().size(), 1u);
  EXPECT_EQ(conf.GetTpxShares()[0].path, root_ + "/share");
  WriteConf("{ not json");
  EXPECT_EQ(conf.Init(), -1);
}

TEST_F(ConfigTest, DecoderLimitsHaveDefaultsAndIgnoreZeroAndJunk) {
  SyncConfigMgr conf;
  ASSERT_EQ(conf.Init(), 0);
  EXPECT_EQ(conf.GetDecodeMaxInputBytes(), 256ull << 20);
  EXPECT_EQ(conf.GetDecodeMaxPixels(), 268435456u);
  EXPECT_EQ(conf.GetRenderMemoryBytes(), 1ull << 30);
  EXPECT_EQ(conf.GetRenderSeconds(), 30u);
  EXPECT_EQ(conf.GetConvertMemoryBytes(), 4ull << 30);
  EXPECT_EQ(conf.GetConvertSeconds(), 300u);
  WriteConf(R"({"decode_max_input_bytes": 1000, "decode_max_pixels": 0, "render_memory_bytes": "lots",
                "render_seconds": 5, "convert_seconds": 99999999, "convert_memory_bytes": -1})");
  ASSERT_EQ(conf.Init(), 0);
  EXPECT_EQ(conf.GetDecodeMaxInputBytes(), 1000u);
  EXPECT_EQ(conf.GetDecodeMaxPixels(), 268435456u);
  EXPECT_EQ(conf.GetRenderMemoryBytes(), 1ull << 30);
  EXPECT_EQ(conf.GetRenderSeconds(), 5u);
  EXPECT_EQ(conf.GetConvertSeconds(), 86400u);  // at most a day
  EXPECT_EQ(conf.GetConvertMemoryBytes(), 4ull << 30);
}

TEST(Base64, DecodesAndRejectsGarbage) {
  char out[16] = {};
  unsigned len = 0;
  ASSERT_NE(EncBase64Dec("aGk=", 4, out, &len), 0);
  EXPECT_EQ(std::string(out, len), "hi");
  EXPECT_EQ(EncBase64Dec("a$k=", 4, out, &len), 0);
  EXPECT_EQ(EncBase64Enc("hi"), "aGk=");
}

TEST(FileHash, MatchesKnownSha256) {
  char tmpl[] = "/tmp/orvel-hash-XXXXXX";
  int fd = ::mkstemp(tmpl);
  ASSERT_EQ(::write(fd, "abc", 3), 3);
  ::close(fd);
  EXPECT_EQ(HashFile(tmpl), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  std::string hash;
  SimpleFileReader r;
  r.setFile(tmpl);
  r.setHashString(hash);
  EXPECT_EQ(r.readFile(), 3);
  EXPECT_EQ(hash, HashFile(tmpl));
  ::unlink(tmpl);
  r.setFile(tmpl);
  EXPECT_EQ(r.readFile(), -1);
}

}  // namespace

namespace {

TEST(DigestCache, UsedOnlyWhileTheFileIsUnchanged) {
  char tmpl[] = "/tmp/orvel-digest-XXXXXX";
  int fd = ::mkstemp(tmpl);
  ASSERT_EQ(::write(fd, "abc", 3), 3);
  const std::string abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  if (!orvel::StoreDigest(fd, abc)) {
    ::close(fd);
    ::unlink(tmpl);
    GTEST_SKIP() << "no user extended attributes on this file system";
  }
  std::string hex;
  uint64_t size = 0;
  EXPECT_TRUE(orvel::LoadDigest(fd, &hex, &size));
  EXPECT_EQ(hex, abc);
  EXPECT_EQ(size, 3u);
  // A later write changes size and time: the recorded digest no longer counts,
  // and the reader hashes the bytes themselves.
  ASSERT_EQ(::write(fd, "d", 1), 1);
  EXPECT_FALSE(orvel::LoadDigest(fd, &hex, &size));
  ::close(fd);
  std::string read_hash;
  SimpleFileReader r;
  r.setFile(tmpl);
  r.setHashString(read_hash);
  EXPECT_EQ(r.readFile(), 4);
  EXPECT_EQ(read_hash, "88d4266fd4e6338d13b845fcf289579d209c897823b9217da3e161936f031589");
  ::unlink(tmpl);
}

}  // namespace
