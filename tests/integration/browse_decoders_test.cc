// The daemon's decoders against hostile files, through the real daemon:
// decompression bombs (a tiny PNG, SVG or PDF that claims a huge size),
// damaged JPEGs and a FIFO get "no thumbnail" with the reason and leave
// nothing in @thumbs; a render over its time limit or whose client hangs up
// is killed; start-up removes unfinished thumbnails; an office conversion
// over its time limit is killed with everything it started.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vips/vips.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "nimbard/nimbard.h"
#include "nimbard/platform.h"
#include "orvelcommon/wire.h"
#include "pdf_maker.h"
#include "stack.h"

namespace orvel::test {
namespace {

const char* const kTarget = "/var/packages/ZemoraOrvel/target";

uint32_t Crc32(const std::string& bytes) {
  uint32_t crc = 0xffffffffu;
  for (unsigned char b : bytes) {
    crc ^= b;
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

std::string Be32(uint32_t v) {
  return std::string{static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                     static_cast<char>(v)};
}

std::string Chunk(const std::string& type, const std::string& data) {
  return Be32(static_cast<uint32_t>(data.size())) + type + data + Be32(Crc32(type + data));
}

// A 69-byte PNG that claims width x height (8-bit RGB) and holds one byte of
// pixel data, with valid CRCs.
std::string PngBomb(uint32_t width, uint32_t height) {
  const std::string ihdr = Be32(width) + Be32(height) + std::string("\x08\x02\x00\x00\x00", 5);
  const std::string zlib("\x78\x01\x01\x01\x00\xfe\xff\x00\x00\x01\x00\x01", 12);  // one stored zero
  return std::string("\x89PNG\r\n\x1a\n", 8) + Chunk("IHDR", ihdr) + Chunk("IDAT", zlib) + Chunk("IEND", "");
}

// An encoded test image (a gradient) of the given size and format suffix.
std::string MakeImage(int width, int height, const char* suffix) {
  static bool inited = VIPS_INIT("decoders_test") == 0;
  EXPECT_TRUE(inited);
  VipsImage* x = nullptr;
  VipsImage* img = nullptr;
  vips_xyz(&x, width, height, nullptr);
  vips_cast(x, &img, VIPS_FORMAT_UCHAR, nullptr);
  g_object_unref(x);
  void* buf = nullptr;
  size_t len = 0;
  EXPECT_EQ(vips_image_write_to_buffer(img, suffix, &buf, &len, nullptr), 0) << vips_error_buffer();
  g_object_unref(img);
  std::string out(static_cast<const char*>(buf), len);
  g_free(buf);
  return out;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// The entries of a folder (without "." and "..").
std::vector<std::string> Names(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (struct dirent* e = readdir(d))
      if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    closedir(d);
  }
  return names;
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// Every file below dir (recursively), as paths relative to it.
void ListFiles(const std::string& dir, const std::string& rel, std::vector<std::string>* out) {
  for (const std::string& n : Names(dir)) {
    struct stat st;
    if (lstat((dir + "/" + n).c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) ListFiles(dir + "/" + n, rel + n + "/", out);
    else out->push_back(rel + n);
  }
}

class DecoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
  }
  void Make(const std::string& path, const std::string& content) {
    Json::Value p;
    p["path"] = path;
    p["type"] = "file";
    p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call("alice", "create", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
  }
  std::unique_ptr<Nimbard> Client() const {
    auto n = std::make_unique<Nimbard>();
    n->SetServer("unix:/tmp/cloud-syncservice", 0);
    n->SetServerVersion(11061);
    n->SetUser("alice", "", "");
    n->SetTimeout(120);
    return n;
  }
  // The daemon's answer to get_thumbnail: "" on success, else "code message".
  std::string ThumbError(const std::string& path, const std::string& size = "small") {
    auto c = Client();
    std::string thumb, name;
    if (c->GetThumbnail(path, "jpg", size, false, thumb, name) == 0) return "";
    return std::to_string(c->GetLastError()) + " " + c->GetLastErrorMessage();
  }
  std::vector<std::string> ThumbFiles() const {
    std::vector<std::string> files;
    ListFiles(stack_->DataDir() + "/@thumbs", "", &files);
    return files;
  }
  // Restarts the daemon with extra configuration keys.
  void Reconfigure(const Json::Value& extra) {
    const std::string path = stack_->root() + kTarget + "/etc/orvel.conf";
    Json::Value conf;
    std::ifstream(path) >> conf;
    for (const auto& k : extra.getMemberNames()) conf[k] = extra[k];
    std::ofstream(path) << conf;
    stack_->StopDaemon();
    stack_->StartDaemon();
  }
  // The processes the daemon has started and not yet reaped.
  std::string DaemonChildren() const {
    std::string all;
    const std::string tasks = "/proc/" + std::to_string(stack_->daemon_pid()) + "/task";
    for (const std::string& t : Names(tasks)) all += ReadFile(tasks + "/" + t + "/children");
    return all;
  }
  std::string DaemonLog() const { return ReadFile(stack_->root() + kTarget + "/var/syncd-test.log"); }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(DecoderTest, BombsAndDamagedFilesGetNoThumbnailAndNothingIsCached) {
  const std::string jpeg = MakeImage(800, 600, ".jpg");
  std::string damaged = jpeg;
  for (size_t i = damaged.size() / 3; i < damaged.size() / 3 + 2000; ++i) damaged[i] = static_cast<char>(i * 31);
  ASSERT_EQ(PngBomb(65535, 65535).size(), 69u);
  Make("/mydrive/bomb-65535.png", PngBomb(65535, 65535));
  Make("/mydrive/bomb-2m.png", PngBomb(2000000, 2000000));
  Make("/mydrive/bomb.svg",
       "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1000000\" height=\"1000000\"><rect width=\"9\" "
       "height=\"9\"/></svg>");
  Make("/mydrive/poster.pdf", MakePdf({"A page of a million points"}, "0 0 1000000 1000000"));
  Make("/mydrive/truncated.jpg", jpeg.substr(0, jpeg.size() / 2));
  Make("/mydrive/damaged.jpg", damaged);
  Make("/mydrive/pipe.jpg", jpeg);
  const std::string pipe = stack_->HomeDir("alice") + "/pipe.jpg";
  ASSERT_EQ(unlink(pipe.c_str()), 0);
  ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);  // must not hang the daemon

  const std::string no = "-901 no thumbnail for this item: ";
  const std::string too_large = "image too large: ";
  EXPECT_EQ(ThumbError("/mydrive/bomb-65535.png"),
            no + too_large + "65535x65535 pixels, more than 268435456 (/mydrive/bomb-65535.png)");
  EXPECT_EQ(ThumbError("/mydrive/bomb-2m.png", "xlarge"),
            no + too_large + "2000000x2000000 pixels, more than 268435456 (/mydrive/bomb-2m.png)");
  EXPECT_EQ(ThumbError("/mydrive/bomb.svg"),
            no + too_large + "1000000x1000000 pixels, more than 268435456 (/mydrive/bomb.svg)");
  EXPECT_EQ(ThumbError("/mydrive/poster.pdf"),
            no + too_large + "1000000x1000000 pixels, more than 268435456 (/mydrive/poster.pdf)");
  EXPECT_EQ(ThumbError("/mydrive/truncated.jpg"),
            no + "cannot decode the image: VipsJpeg: Premature end of input file (/mydrive/truncated.jpg)");
  EXPECT_EQ(ThumbError("/mydrive/damaged.jpg"),
            no + "cannot decode the image: VipsJpeg: Corrupt JPEG data: premature end of data segment "
                 "(/mydrive/damaged.jpg)");
  EXPECT_EQ(ThumbError("/mydrive/pipe.jpg"), no + "not a regular file (/mydrive/pipe.jpg)");
  // Through the web API: the code the module maps -901 to.
  Json::Value p;
  p["path"] = "/mydrive/bomb.svg";
  EXPECT_EQ(stack_->CallRaw("alice", "get_thumbnail", p).Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE"), "1012");
  EXPECT_EQ(ThumbFiles(), std::vector<std::string>{});

  // The daemon is still well, and a real image still gets its thumbnail.
  Make("/mydrive/photo.jpg", jpeg);
  p["path"] = "/mydrive/photo.jpg";
  CgiResult r = stack_->CallRaw("alice", "get_thumbnail", p);
  ASSERT_EQ(r.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE"), "") << r.headers;
  EXPECT_EQ(r.body.compare(0, 3, "\xff\xd8\xff"), 0);
  EXPECT_EQ(ThumbFiles().size(), 1u);
  EXPECT_EQ(DaemonChildren(), "");
}

// A limit of one second and a pixel limit the bomb passes: the render runs
// until the watchdog kills it, and nothing of it stays. (The photo is
// rendered before, under the default limits, so that a loaded machine cannot
// make it run over one second.)
TEST_F(DecoderTest, ARenderOverItsTimeLimitIsKilledAndLeavesNothing) {
  Make("/mydrive/photo.png", MakeImage(400, 300, ".png"));
  EXPECT_EQ(ThumbError("/mydrive/photo.png"), "");
  Json::Value limits;
  limits["render_seconds"] = 1;
  limits["decode_max_pixels"] = Json::UInt64(10000000000000ull);
  limits["render_memory_bytes"] = Json::UInt64(64ull << 30);
  Reconfigure(limits);
  Make("/mydrive/slow.png", PngBomb(2000000, 2000000));
  const std::vector<std::string> before = ThumbFiles();
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(ThumbError("/mydrive/slow.png"), "-901 no thumbnail for this item: stopped after 1 s (/mydrive/slow.png)");
  EXPECT_EQ(ThumbFiles(), before);
  EXPECT_EQ(DaemonChildren(), "");
  EXPECT_EQ(ThumbError("/mydrive/photo.png"), "");  // the daemon still answers
}

// The client sends its request and leaves; the daemon notices the hang-up
// and kills the render long before its time limit.
TEST_F(DecoderTest, ARenderIsStoppedWhenItsClientHangsUp) {
  Json::Value limits;
  limits["render_seconds"] = 120;
  limits["decode_max_pixels"] = Json::UInt64(10000000000000ull);
  limits["render_memory_bytes"] = Json::UInt64(64ull << 30);
  Reconfigure(limits);
  Make("/mydrive/slow.png", PngBomb(2000000, 2000000));
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", stack_->SocketPath().c_str());
  ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  PObject req = PObject::MakeMap();
  req["protocol"] = 11061;
  req["op"] = "get_thumbnail";
  req["user"] = "alice";
  req["args"]["path"] = "/mydrive/slow.png";
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  // Wait until the render has started (a child of the daemon), then leave.
  for (int i = 0; i < 6000 && DaemonChildren().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_NE(DaemonChildren(), "");
  close(fd);
  const std::string line = "given up: the client went away";
  for (int i = 0; i < 6000 && DaemonLog().find(line) == std::string::npos; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_NE(DaemonLog().find(line), std::string::npos) << DaemonLog();
  EXPECT_EQ(DaemonChildren(), "");
  EXPECT_EQ(ThumbFiles(), std::vector<std::string>{});
}

TEST_F(DecoderTest, StartUpRemovesUnfinishedThumbnails) {
  const std::string dir = stack_->DataDir() + "/@thumbs/ab";
  ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
  std::ofstream(dir + "/.tmp-0123.jpg") << "half a thumbnail";
  std::ofstream(dir + "/abcdef0123-small.jpg") << "a finished one";
  stack_->StopDaemon();
  stack_->StartDaemon();
  EXPECT_EQ(ThumbFiles(), std::vector<std::string>{"ab/abcdef0123-small.jpg"});
}

bool Running(const std::string& pid) {
  std::string stat = ReadFile("/proc/" + pid + "/stat");
  size_t paren = stat.rfind(')');
  return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] != 'Z';
}

// A converter that writes half a document, starts a helper process and
// never finishes: the task fails at the one-second limit, the converter and
// its helper are killed, and its temp folder is removed. A document over the
// input size limit is not converted at all.
TEST_F(DecoderTest, AConversionOverItsLimitsIsStoppedWithEverythingItStarted) {
  const std::string fake = stack_->root() + "/slow-soffice";
  const std::string pids = stack_->root() + "/slow-soffice.pids";
  std::ofstream(fake) << "#!/bin/sh\n"
                         "while [ $# -gt 0 ]; do [ \"$1\" = --outdir ] && out=\"$2\"; shift; done\n"
                         "echo partial > \"$out/report.odt\"\n"
                         "sleep 600 &\n"
                         "echo $$ $! > " + pids + "\n"
                         "wait\n";
  ASSERT_EQ(chmod(fake.c_str(), 0755), 0);
  Json::Value conf;
  conf["office_converter"] = fake;
  conf["convert_seconds"] = 1;
  Reconfigure(conf);
  Make("/mydrive/report.docx", "a document");
  auto convert = [&]() {
    auto c = Client();
    PObject args = PObject::MakeMap();
    args["files"] = PObject::MakeArray();
    args["files"].push_back("/mydrive/report.docx");
    PObject result, task;
    EXPECT_EQ(c->Call("convert_office", args, &result), 0) << c->GetLastErrorMessage();
    PObject get = PObject::MakeMap();
    get["task_id"] = result["task_id"].asString();
    for (int i = 0; i < 3000; ++i) {
      EXPECT_EQ(c->Call("task_get", get, &task), 0) << c->GetLastErrorMessage();
      const std::string state = task["task"]["state"].asString();
      if (state == "finished" || state == "failed" || state == "cancelled") break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return std::make_pair(task["task"], get["task_id"].asString());
  };
  auto [task, id] = convert();
  EXPECT_EQ(task["state"].asString(), "failed") << task.toJsonString();
  EXPECT_EQ(task["error"]["code"].asInt64(), -1115);
  EXPECT_EQ(task["error"]["message"].asString(), "conversion of report.docx timed out after 1 s");
  std::istringstream started(ReadFile(pids));
  std::string shell, helper;
  started >> shell >> helper;
  ASSERT_FALSE(helper.empty());
  for (int i = 0; i < 500 && (Running(shell) || Running(helper)); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_FALSE(Running(shell));
  EXPECT_FALSE(Running(helper));
  for (const std::string& name : Names(stack_->DataDir() + "/@tmp")) EXPECT_NE(name.rfind("task-" + id, 0), 0u) << name;
  EXPECT_FALSE(Exists(stack_->HomeDir("alice") + "/report.odt"));

  conf["decode_max_input_bytes"] = 5;
  Reconfigure(conf);
  ::unlink(pids.c_str());
  std::tie(task, id) = convert();
  EXPECT_EQ(task["error"]["code"].asInt64(), -803) << task.toJsonString();
  EXPECT_EQ(task["error"]["message"].asString(), "report.docx is too large to convert (10 bytes, limit 5)");
  EXPECT_FALSE(Exists(pids));  // the converter never ran
}

}  // namespace
}  // namespace orvel::test
