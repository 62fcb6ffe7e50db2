// See pool.h.
#include "db/pool.h"

namespace orvel::syncd {

StoreLease::~StoreLease() {
  if (pool_ && store_) pool_->Release(std::move(store_));
}

Status StorePool::Acquire(StoreLease* out) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (!idle_.empty()) {
      std::unique_ptr<Store> s = std::move(idle_.back());
      idle_.pop_back();
      *out = StoreLease(this, std::move(s));
      return Status::OK();
    }
  }
  if (backend_ != "sqlite")
    return Status(kErrInvalidArgument, "database back-end not supported: " + backend_);
  bool migrate;
  {
    std::lock_guard<std::mutex> lock(mu_);
    migrate = !migrated_;
  }
  std::unique_ptr<Store> s;
  ORVEL_RETURN_IF_ERROR(OpenSqliteStore(path_, &s, migrate));
  if (migrate) {
    std::lock_guard<std::mutex> lock(mu_);
    migrated_ = true;
  }
  *out = StoreLease(this, std::move(s));
  return Status::OK();
}

void StorePool::Release(std::unique_ptr<Store> store) {
  store->Rollback();  // never hand on an open transaction
  std::lock_guard<std::mutex> lock(mu_);
  if (idle_.size() < max_idle_) idle_.push_back(std::move(store));
}

void StorePool::CloseIdle() {
  std::lock_guard<std::mutex> lock(mu_);
  idle_.clear();
}

}  // namespace orvel::syncd
