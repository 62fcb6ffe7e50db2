// See convert.h.
#include "convert.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "child.h"
#include "daemon.h"
#include "tasks.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

bool IsExecutable(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

// The source must be a regular file within the configured size.
Status CheckSource(const std::string& src, const std::string& base, uint64_t max_bytes) {
  struct stat st;
  if (lstat(src.c_str(), &st) != 0) return FsError("stat", src, errno);
  if (!S_ISREG(st.st_mode))
    return Status(kErrNotConvertible, "conversion not supported for this type: " + base);
  if (static_cast<uint64_t>(st.st_size) > max_bytes)
    return Status(kErrTooLarge, base + " is too large to convert (" + std::to_string(st.st_size) +
                                    " bytes, limit " + std::to_string(max_bytes) + ")");
  return Status::OK();
}

}  // namespace

std::string OfficeTargetFormat(const std::string& name) {
  const std::string ext = ExtensionOf(name);
  for (const char* e : {"doc", "docx", "docm", "dot", "dotx", "rtf", "wpd"})
    if (ext == e) return "odt";
  for (const char* e : {"xls", "xlsx", "xlsm", "xlt", "xltx", "csv"})
    if (ext == e) return "ods";
  for (const char* e : {"ppt", "pptx", "pptm", "pps", "ppsx", "pot", "potx"})
    if (ext == e) return "odp";
  return "";
}

std::string FindSoffice(const std::string& program) {
  if (program.find('/') != std::string::npos) return IsExecutable(program) ? program : "";
  const char* path = getenv("PATH");
  std::string dirs = path && *path ? path : "/usr/local/bin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    std::string dir = dirs.substr(start, end - start);
    if (!dir.empty() && IsExecutable(dir + "/" + program)) return dir + "/" + program;
    start = end + 1;
  }
  return "";
}

Status RunSoffice(TaskContext& ctx, const std::string& soffice, const std::string& src,
                  const std::string& format, const std::string& out_dir, const std::string& profile,
                  std::string* output) {
  const SyncConfigMgr& config = ctx.d->config;
  const std::string base = src.substr(src.find_last_of('/') + 1);
  ORVEL_RETURN_IF_ERROR(CheckSource(src, base, config.GetDecodeMaxInputBytes()));
  ChildSpec job;
  job.argv = {soffice, "--headless", "--norestore", "--nolockcheck",
               "-env:UserInstallation=file://" + profile, "--convert-to", format, "--outdir", out_dir, src};
  job.env = InheritedChildEnv();
  job.env.push_back("HOME=" + profile);
  job.env.push_back("LANG=C.UTF-8");
  if (const char* p = getenv("PATH")) job.env.push_back(std::string("PATH=") + p);
  job.cancelled = [&ctx] { return ctx.Cancelled(); };
  job.limits.memory_bytes = config.GetConvertMemoryBytes();
  job.limits.seconds = config.GetConvertSeconds();
  ChildResult r;
  Status st = RunChild(job, &r);
  if (!st.ok()) return Status(kErrNoConverter, "converter not available: " + st.message());
  if (r.end == ChildEnd::kCancelled) return Status(kErrTaskCancelled, "task cancelled");
  if (r.end == ChildEnd::kTimedOut)
    return Status(kErrTaskFailed, "conversion of " + base + " timed out after " +
                                      std::to_string(job.limits.seconds) + " s");
  size_t dot = base.find_last_of('.');
  *output = out_dir + "/" + (dot == std::string::npos ? base : base.substr(0, dot)) + "." + format;
  struct stat out_st;
  if (r.end != ChildEnd::kExited || r.code != 0 || stat(output->c_str(), &out_st) != 0)
    return Status(kErrTaskFailed, "conversion of " + base + " failed (soffice " +
                                      (r.end == ChildEnd::kSignalled ? "signal " : "status ") +
                                      std::to_string(r.code) + ")");
  return Status::OK();
}

}  // namespace orvel::syncd
