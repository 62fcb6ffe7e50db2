// Module loading; see module_loader.h. A module's rows are collected and
// checked first and only then added, so a failing module leaves the registry
// as it was. Not thread-safe.
#include "cgi/module_loader.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "internal/io.h"
#include "internal/log.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "module-loader";

// A sanity bound on table length: a table without its zero row would
// otherwise be read until the process faults.
constexpr size_t kMaxRows = 100000;

orvel::Status Refuse(const std::string& path, const std::string& why) {
  return orvel::Status(orvel::kErrInvalidArgument, path + ": " + why);
}

// dlopen handle that is closed unless released.
class DlHandle {
 public:
  explicit DlHandle(void* h) : h_(h) {}
  ~DlHandle() {
    if (h_ != nullptr) ::dlclose(h_);
  }
  DlHandle(const DlHandle&) = delete;
  DlHandle& operator=(const DlHandle&) = delete;
  void* get() const { return h_; }
  void Release() { h_ = nullptr; }

 private:
  void* h_;
};

struct Row {
  std::string api, method;
  unsigned version;
  ZemoProcessFn process;
};

orvel::Status CheckFile(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return io::LastError("stat", path);
  if (!S_ISREG(st.st_mode)) return Refuse(path, "not a regular file");
  if (st.st_mode & S_IWOTH) return Refuse(path, "writable by others");
  return orvel::Status::OK();
}

bool ValidVersion(uintptr_t v) { return v >= 1 && v <= 0xFFFFFFFFu; }

orvel::Status ReadApiTable(const std::string& path, void* handle, std::vector<Row>* rows) {
  auto get = reinterpret_cast<ZemoGetAPITableFn>(::dlsym(handle, "GetAPITable"));
  if (get == nullptr) return Refuse(path, "no GetAPITable");
  const ZemoAPIEntry* table = get();
  if (table == nullptr) return Refuse(path, "GetAPITable returned no table");
  for (size_t i = 0; table[i].api != nullptr; ++i) {
    if (i >= kMaxRows) return Refuse(path, "method table has no end row");
    const ZemoAPIEntry& e = table[i];
    if (e.method == nullptr || e.process == nullptr || !ValidVersion(e.version)) {
      return Refuse(path, "bad method table row " + std::to_string(i));
    }
    rows->push_back(Row{e.api, e.method, static_cast<unsigned>(e.version), e.process});
  }
  return orvel::Status::OK();
}

void AddChecks(const std::string& path, void* handle, const std::vector<Row>& rows,
               ApiRegistry* registry) {
  auto get = reinterpret_cast<ZemoGetAPICheckTableFn>(::dlsym(handle, "GetAPICheckTable"));
  const ZemoAPICheckEntry* table = get == nullptr ? nullptr : get();
  if (table == nullptr) {
    WEBAPI_LOG(Logger::kDebug, "%s has no parameter checks", path.c_str());
    return;
  }
  for (size_t i = 0; i < kMaxRows && table[i].api != nullptr; ++i) {
    const ZemoAPICheckEntry& e = table[i];
    if (e.method == nullptr || e.check == nullptr || !ValidVersion(e.version)) continue;
    unsigned version = static_cast<unsigned>(e.version);
    // Only the module's own rows get its checks.
    bool own = std::any_of(rows.begin(), rows.end(), [&](const Row& r) {
      return r.api == e.api && r.method == e.method && r.version == version;
    });
    if (own) registry->SetCheck(e.api, e.method, version, e.check);
  }
}

}  // namespace

orvel::Status LoadModule(const std::string& path, const std::set<std::string>& reserved,
                         ApiRegistry* registry) {
  ORVEL_RETURN_IF_ERROR(CheckFile(path));
  DlHandle handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (handle.get() == nullptr) {
    const char* err = ::dlerror();  // names the path itself
    return orvel::Status(orvel::kErrInvalidArgument, err != nullptr ? err : path + ": dlopen failed");
  }
  std::vector<Row> rows;
  ORVEL_RETURN_IF_ERROR(ReadApiTable(path, handle.get(), &rows));
  std::vector<Row> added;
  for (const Row& r : rows) {
    if (reserved.count(r.api) != 0) {
      WEBAPI_LOG(Logger::kError, "%s: built-in api %s skipped", path.c_str(), r.api.c_str());
      continue;
    }
    if (!registry->Add(r.api, r.method, r.version, ApiMethod{r.process, nullptr, path})) {
      WEBAPI_LOG(Logger::kError, "%s: %s.%s version %u already served", path.c_str(),
                 r.api.c_str(), r.method.c_str(), r.version);
      continue;
    }
    added.push_back(r);
  }
  AddChecks(path, handle.get(), added, registry);
  handle.Release();  // its functions are in the registry now
  return orvel::Status::OK();
}

int LoadModuleDir(const std::string& dir, const std::set<std::string>& reserved,
                  ApiRegistry* registry) {
  std::unique_ptr<DIR, int (*)(DIR*)> d(::opendir(dir.c_str()), &::closedir);
  if (!d) {
    WEBAPI_LOG(Logger::kDebug, "no modules folder %s", dir.c_str());
    return 0;
  }
  std::vector<std::string> names;
  while (struct dirent* e = ::readdir(d.get())) {
    std::string name = e->d_name;
    if (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0) names.push_back(name);
  }
  d.reset();
  std::sort(names.begin(), names.end());
  int loaded = 0;
  for (const std::string& name : names) {
    std::string path = dir + "/" + name;
    orvel::Status st = LoadModule(path, reserved, registry);
    if (st.ok()) {
      ++loaded;
    } else {
      // Every reason names the module's path.
      WEBAPI_LOG(Logger::kError, "module not loaded: %s", st.ToString().c_str());
    }
  }
  return loaded;
}

}  // namespace zemo::cgi
