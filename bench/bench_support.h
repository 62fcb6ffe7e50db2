// Helpers shared by the bench programs: test data on disk, percentiles,
// waiting for a daemon task, and the peak resident memory of the processes
// this program started (lighttpd, entry.cgi, the daemon, the archiver).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvel::bench {

// Writes size bytes of seeded pseudo-random (incompressible) data to path.
void WriteRandom(const std::string& path, uint64_t size);

// Creates dir with count small files "file-NNNNNN.txt" in it.
void FillFolder(const std::string& dir, int count);

// A width x height JPEG of noise (libvips must be initialised).
bool WriteJpeg(const std::string& path, int width, int height);

// The p-quantile (0..1) of v (v not empty).
double Percentile(std::vector<double> v, double p);

// Polls the daemon for task id of user until it has finished; a gtest
// failure when it fails. ZEMO_ROOT must name the stack's root.
void WaitTask(const std::string& user, const std::string& id);

// The async_task_id of a JSON answer.
std::string TaskOf(const std::string& json_answer);

// A process descended from this one that is not the client side (this
// program's own forks before exec, curl): lighttpd, entry.cgi, the daemon...
struct StackProcess {
  pid_t pid = 0;
  std::string name;  // the kernel's 15-character "Name:"
  long hwm_kib = 0;  // VmHWM
};
std::vector<StackProcess> StackProcesses();

// CPU time (user and system, seconds) used so far per program name by the
// stack processes alive now.
std::map<std::string, double> CpuSecondsByProgram();

// Peak resident memory per program name, over every process descended from
// this one, while the sampler lives. Polls /proc every 10 ms and reads each
// process's high-water mark (VmHWM), which it resets at the start for the
// processes already running, so a short-lived peak between two polls is
// still seen. Processes of other programs on the machine are not counted.
class RssSampler {
 public:
  RssSampler();
  ~RssSampler();
  RssSampler(const RssSampler&) = delete;
  RssSampler& operator=(const RssSampler&) = delete;

  struct Peak {
    long kib = 0;       // the highest VmHWM seen
    int processes = 0;  // how many processes of that name were seen
  };
  // Per program name (the kernel's 15-character "Name:"); curl and
  // processes named like this program (its forks before exec) are left out.
  std::map<std::string, Peak> peaks();

 private:
  void Loop();
  void Poll(bool reset);
  std::atomic<bool> stop_{false};
  std::mutex mu_;
  std::map<std::string, Peak> peaks_;
  std::map<pid_t, std::string> seen_;
  std::thread thread_;
};

}  // namespace orvel::bench
