// Transfer paths of the module through entry.cgi: an uploaded file part is
// hashed once (the daemon takes entry.cgi's digest, and hashes a staged
// file itself only when that digest cannot be trusted), and a download of
// one file is handed to the web server by X-Sendfile (the header, an empty
// body, the exact bytes behind the named link, a swapped download link
// refused, the hand-over links swept). Hook points make the swap and the
// second read visible without timing.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>

#include "orvelcommon/handover.h"
#include "nimbard/nimbard.h"
#include "orvelcommon/sha256.h"
#include "stack.h"

namespace orvel::test {
namespace {

const char kBoundary[] = "----orvel-handover-test";

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

std::string Sha256Hex(const std::string& bytes) {
  Sha256 sha;
  sha.Update(bytes.data(), bytes.size());
  return sha.HexDigest();
}

std::string RandomBytes(size_t size) {
  std::mt19937_64 rng(11);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(rng());
  return out;
}

class TransferHandOverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/handover-hooks-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    hooks_ = tmpl;
    ::setenv("ORVEL_SYNCD_HOOKS", hooks_.c_str(), 1);
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    tmp_ = stack_->DataDir() + "/@tmp";
  }
  void TearDown() override {
    stack_.reset();
    ::unsetenv("ORVEL_SYNCD_HOOKS");
    Sh("rm -rf '" + hooks_ + "'");
  }
  static void Sh(const std::string& cmd) { ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd; }
  // A hook program for the daemon's point `point`.
  void Hook(const std::string& point, const std::string& script) {
    const std::string path = hooks_ + "/" + point;
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    ::chmod(path.c_str(), 0755);
  }
  Json::Value Upload(const std::string& path, const std::string& bytes) {
    CgiRequest req;
    req.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "upload"}, {"version", "1"},
                  {"_sid", stack_->Login("alice").sid}, {"path", path}, {"type", "file"}};
    req.content_type = std::string("multipart/form-data; boundary=") + kBoundary;
    req.body = std::string("--") + kBoundary +
               "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"f.bin\"\r\n\r\n" + bytes +
               "\r\n--" + kBoundary + "--\r\n";
    return stack_->Cgi(req).Json();
  }
  CgiResult Download(const std::string& path) {
    Json::Value p;
    p["files"].append(path);
    return stack_->CallRaw("alice", "download", p);
  }
  void HandOverOn() {
    Json::Value on;
    on["download_x_sendfile"] = true;
    stack_->SetConf(on);
  }
  int HandOverLinks() {
    std::string out = RunProcess({"/bin/sh", "-c", "ls -A '" + HandOverFolder(tmp_) + "' | wc -l"}, {}).out;
    return std::atoi(out.c_str());
  }
  // A file staged in @tmp as a client of the daemon would, uploaded by root
  // through the client library; the daemon's answer code.
  int UploadStaged(const std::string& staged, const std::string& dest, std::string* hash) {
    Nimbard n;
    n.SetServer("unix:/tmp/cloud-syncservice", 0);
    n.SetUser("alice", "", "");
    n.SetServerVersion(11061);
    PObject args = PObject::MakeMap();
    args["path"] = dest;
    args["file_type"] = "file";
    args["file_data_path"] = staged;
    PObject r;
    int rc = n.Call("upload_file", args, &r);
    *hash = r["file"]["hash"].asString();
    return rc == 0 ? 0 : n.GetLastError();
  }

  std::string hooks_, tmp_;
  std::unique_ptr<TestStack> stack_;
};

TEST_F(TransferHandOverTest, UploadedPartIsHashedOnceAndDownloadsBackWhole) {
  Hook("staged-data-hash", "touch '" + hooks_ + "/hashed'");
  const std::string bytes = RandomBytes(3 << 20);
  Json::Value r = Upload("/mydrive/big.bin", bytes);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_FALSE(Exists(hooks_ + "/hashed")) << "the daemon read the upload again to hash it";
  EXPECT_EQ(ReadAll(stack_->HomeDir("alice") + "/big.bin"), bytes);

  // Streamed (no web server in front): the exact bytes in the body.
  CgiResult streamed = Download("/mydrive/big.bin");
  EXPECT_EQ(streamed.Header("X-Sendfile"), "");
  EXPECT_EQ(streamed.body, bytes);
}

TEST_F(TransferHandOverTest, StagedFileWhoseDigestCannotBeTrustedIsHashed) {
  Hook("staged-data-hash", "echo x >> '" + hooks_ + "/hashed'");
  // A digest recorded for other content, then the file changed: its size
  // no longer matches the record, so the daemon reads the file.
  const std::string staged = tmp_ + "/staged-changed";
  {
    std::ofstream(staged) << "first";
    int fd = ::open(staged.c_str(), O_RDWR | O_APPEND);
    ASSERT_TRUE(StoreDigest(fd, Sha256Hex("first")));
    ASSERT_EQ(::write(fd, "!", 1), 1);
    ::close(fd);
  }
  std::string hash;
  ASSERT_EQ(UploadStaged(staged, "/mydrive/changed.txt", &hash), 0);
  EXPECT_EQ(hash, Sha256Hex("first!"));
  // A file with a second link: someone else may hold a way to change it.
  const std::string linked = tmp_ + "/staged-linked";
  {
    std::ofstream(linked) << "linked";
    int fd = ::open(linked.c_str(), O_RDWR);
    ASSERT_TRUE(StoreDigest(fd, Sha256Hex("something else")));
    ::close(fd);
    ASSERT_EQ(::link(linked.c_str(), (stack_->root() + "/other-link").c_str()), 0);
  }
  ASSERT_EQ(UploadStaged(linked, "/mydrive/linked.txt", &hash), 0);
  EXPECT_EQ(hash, Sha256Hex("linked"));
  EXPECT_EQ(ReadAll(hooks_ + "/hashed"), "x\nx\n");
}

TEST_F(TransferHandOverTest, DownloadIsHandedOverByXSendfileAndItsLinkIsSwept) {
  HandOverOn();
  const std::string bytes = RandomBytes(3 << 20);
  ASSERT_TRUE(Upload("/mydrive/big.bin", bytes)["success"].asBool());
  CgiResult r = Download("/mydrive/big.bin");
  EXPECT_EQ(r.body, "");
  EXPECT_EQ(r.Header("Content-Type"), "application/octet-stream");
  EXPECT_EQ(r.Header("Content-Disposition"),
            "attachment; filename=\"big.bin\"; filename*=utf-8''big.bin");
  EXPECT_EQ(r.Header("X-Download-Options"), "noopen");
  const std::string link = r.Header("X-Sendfile");
  ASSERT_EQ(link.rfind(HandOverFolder(tmp_) + "/", 0), 0u) << r.headers;
  EXPECT_EQ(ReadAll(link), bytes);
  // The download's own staging is gone with the request; the hand-over link
  // stays for the web server until it is swept.
  EXPECT_EQ(RunProcess({"/bin/sh", "-c", "ls -d '" + tmp_ + "'/download-* 2>/dev/null | wc -l"}, {}).out, "0\n");
  EXPECT_EQ(HandOverLinks(), 1);
  const int64_t now = ::time(nullptr);
  EXPECT_EQ(SweepHandOver(tmp_, now, kHandOverLinkSeconds), 0);
  EXPECT_EQ(SweepHandOver(tmp_, now + kHandOverLinkSeconds + 1, kHandOverLinkSeconds), 1);
  EXPECT_EQ(HandOverLinks(), 0);
}

TEST_F(TransferHandOverTest, DownloadLinkSwappedForASymbolicLinkIsRefused) {
  HandOverOn();
  ASSERT_TRUE(Upload("/mydrive/a.txt", "alice's")["success"].asBool());
  const std::string secret = stack_->root() + "/secret.txt";
  std::ofstream(secret) << "not for alice";
  // Between the daemon's link and the module's hand-over.
  Hook("download-file-linked", "for f in '" + tmp_ + "'/download-*/a.txt; do rm \"$f\"; ln -s '" + secret +
                                   "' \"$f\"; done");
  CgiResult r = Download("/mydrive/a.txt");
  EXPECT_EQ(r.Header("X-Sendfile"), "");
  EXPECT_EQ(r.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE"), "117") << r.headers;
  EXPECT_EQ(r.Header("Status"), "400 Bad Request");
  EXPECT_EQ(r.body, "");
  EXPECT_EQ(HandOverLinks(), 0);
}

}  // namespace
}  // namespace orvel::test
