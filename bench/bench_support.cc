// See bench_support.h.
#include "bench_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vips/vips.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "nimbard/nimbard.h"

namespace orvel::bench {

void WriteRandom(const std::string& path, uint64_t size) {
  std::mt19937_64 rng(7);
  std::vector<uint64_t> block(1 << 17);
  std::ofstream out(path, std::ios::binary);
  for (uint64_t done = 0; done < size; done += block.size() * 8) {
    for (auto& w : block) w = rng();
    const uint64_t n = std::min<uint64_t>(block.size() * 8, size - done);
    out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(n));
  }
}

void FillFolder(const std::string& dir, int count) {
  ::mkdir(dir.c_str(), 0755);
  char name[64];
  for (int i = 0; i < count; ++i) {
    std::snprintf(name, sizeof(name), "/file-%06d.txt", i);
    int fd = ::open((dir + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      (void)!::write(fd, name, 8);
      ::close(fd);
    }
  }
}

bool WriteJpeg(const std::string& path, int width, int height) {
  VipsImage* noise = nullptr;
  VipsImage* img = nullptr;
  if (vips_gaussnoise(&noise, width, height, "mean", 128.0, "sigma", 40.0, nullptr) != 0) return false;
  int rc = vips_cast(noise, &img, VIPS_FORMAT_UCHAR, nullptr);
  g_object_unref(noise);
  if (rc != 0) return false;
  rc = vips_jpegsave(img, path.c_str(), "Q", 90, nullptr);
  g_object_unref(img);
  return rc == 0;
}

double Percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1))];
}

void WaitTask(const std::string& user, const std::string& id) {
  Nimbard n;
  n.SetServer("unix:/tmp/cloud-syncservice", 0);
  n.SetUser(user, "", "");
  n.SetServerVersion(11061);
  PObject args = PObject::MakeMap();
  args["task_id"] = id;
  for (;;) {
    PObject r;
    ASSERT_EQ(n.Call("task_get", args, &r), 0) << n.GetLastErrorMessage();
    std::string s = r["task"]["state"].asString();
    if (s == "finished") return;
    ASSERT_TRUE(s == "queued" || s == "running") << r.toJsonString();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::string TaskOf(const std::string& json_answer) {
  Json::Value v;
  std::istringstream(json_answer) >> v;
  return v["data"]["async_task_id"].asString();
}

namespace {

// Name, parent and VmHWM (KiB) of one process; false when it is gone.
bool ReadStatus(pid_t pid, std::string* name, pid_t* ppid, long* hwm_kib) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  if (!in) return false;
  std::string line;
  *hwm_kib = 0;
  while (std::getline(in, line)) {
    if (line.rfind("Name:", 0) == 0) *name = line.substr(line.find_first_not_of(" \t", 5));
    if (line.rfind("PPid:", 0) == 0) *ppid = static_cast<pid_t>(std::stol(line.substr(5)));
    if (line.rfind("VmHWM:", 0) == 0) *hwm_kib = std::stol(line.substr(6));
  }
  return !name->empty();
}

}  // namespace

RssSampler::RssSampler() {
  Poll(true);
  thread_ = std::thread([this] { Loop(); });
}

RssSampler::~RssSampler() {
  stop_ = true;
  thread_.join();
}

std::map<std::string, RssSampler::Peak> RssSampler::peaks() {
  std::lock_guard<std::mutex> lock(mu_);
  return peaks_;
}

void RssSampler::Loop() {
  while (!stop_) {
    Poll(false);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  Poll(false);
}

void RssSampler::Poll(bool reset) {
  const std::vector<StackProcess> procs = StackProcesses();
  std::lock_guard<std::mutex> lock(mu_);
  for (const StackProcess& p : procs) {
    if (reset) {
      // Lowers the high-water mark to the current resident size, so the
      // figure is this step's and not an earlier one's.
      std::ofstream("/proc/" + std::to_string(p.pid) + "/clear_refs") << "5";
      continue;
    }
    Peak& peak = peaks_[p.name];
    auto seen = seen_.find(p.pid);
    if (seen == seen_.end() || seen->second != p.name) {
      seen_[p.pid] = p.name;
      ++peak.processes;
    }
    peak.kib = std::max(peak.kib, p.hwm_kib);
  }
}

std::vector<StackProcess> StackProcesses() {
  struct Proc {
    std::string name;
    pid_t ppid = 0;
    long hwm = 0;
  };
  std::map<pid_t, Proc> procs;
  if (DIR* d = opendir("/proc")) {
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] < '0' || e->d_name[0] > '9') continue;
      Proc p;
      const pid_t pid = static_cast<pid_t>(std::atol(e->d_name));
      if (ReadStatus(pid, &p.name, &p.ppid, &p.hwm)) procs[pid] = p;
    }
    closedir(d);
  }
  const pid_t self = ::getpid();
  // This program's own forks (between fork and exec) and curl are the
  // client side.
  const std::string own_name = procs.count(self) ? procs[self].name : "";
  std::vector<StackProcess> out;
  for (const auto& [pid, p] : procs) {
    if (pid == self || p.name == own_name || p.name == "curl") continue;
    pid_t up = p.ppid;
    for (int depth = 0; up > 1 && up != self && depth < 16; ++depth) {
      auto it = procs.find(up);
      up = it == procs.end() ? 0 : it->second.ppid;
    }
    if (up == self) out.push_back({pid, p.name, p.hwm});
  }
  return out;
}

std::map<std::string, double> CpuSecondsByProgram() {
  std::map<std::string, double> out;
  const double ticks = static_cast<double>(::sysconf(_SC_CLK_TCK));
  for (const StackProcess& p : StackProcesses()) {
    std::ifstream in("/proc/" + std::to_string(p.pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {  // fields 14 and 15: utime, stime
      if (i == 14) utime = std::stoull(field);
      if (i == 15) stime = std::stoull(field);
    }
    out[p.name] += static_cast<double>(utime + stime) / ticks;
  }
  return out;
}

}  // namespace orvel::bench
