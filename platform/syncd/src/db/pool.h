// StorePool: hands out Store connections, one per thread at a time. A
// connection goes back to the pool when its lease ends; at most `max_idle`
// idle connections are kept open. Thread-safe.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "db/store.h"

namespace orvel::syncd {

class StorePool;

// A borrowed connection; returns it to the pool when destroyed.
class StoreLease {
 public:
  StoreLease() = default;
  StoreLease(StorePool* pool, std::unique_ptr<Store> store) : pool_(pool), store_(std::move(store)) {}
  ~StoreLease();
  StoreLease(StoreLease&&) = default;
  StoreLease& operator=(StoreLease&&) = default;
  StoreLease(const StoreLease&) = delete;
  StoreLease& operator=(const StoreLease&) = delete;
  Store* operator->() const { return store_.get(); }
  Store* get() const { return store_.get(); }

 private:
  StorePool* pool_ = nullptr;
  std::unique_ptr<Store> store_;
};

class StorePool {
 public:
  // backend: "sqlite" (path = the database file). Other back-ends are
  // refused by Acquire with kErrInvalidArgument.
  StorePool(std::string backend, std::string path, size_t max_idle = 8)
      : backend_(std::move(backend)), path_(std::move(path)), max_idle_(max_idle) {}
  StorePool(const StorePool&) = delete;
  StorePool& operator=(const StorePool&) = delete;

  // An idle connection, or a newly opened one.
  Status Acquire(StoreLease* out);
  void Release(std::unique_ptr<Store> store);
  // Closes the idle connections (shutdown).
  void CloseIdle();

 private:
  std::string backend_, path_;
  size_t max_idle_;
  std::mutex mu_;
  bool migrated_ = false;  // guarded by mu_
  std::vector<std::unique_ptr<Store>> idle_;
};

}  // namespace orvel::syncd
