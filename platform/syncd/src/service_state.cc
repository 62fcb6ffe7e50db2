// ServiceState; see service_state.h.
#include "service_state.h"

namespace orvel::syncd {

Status ServiceState::LoadLocked(Store* store) {
  if (loaded_) return Status::OK();
  ReadSnapshot snapshot(store);  // both rows from one snapshot
  std::string state = "enabled";
  Status st = store->GetState("status", &state);
  if (!st.ok() && st.code() != kErrNotFound) return st;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(store->GetFreeze(0, &frozen));
  state_ = state;
  frozen0_ = frozen;
  loaded_ = true;
  return Status::OK();
}

Status ServiceState::Get(Store* store, uint32_t view_id, std::string* state, bool* frozen) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    ORVEL_RETURN_IF_ERROR(LoadLocked(store));
    *state = state_;
    if (view_id == 0) {
      *frozen = frozen0_;
      return Status::OK();
    }
  }
  return store->GetFreeze(view_id, frozen);
}

Status ServiceState::SetState(Store* store, const std::string& state) {
  std::lock_guard<std::mutex> lock(mu_);
  ORVEL_RETURN_IF_ERROR(LoadLocked(store));
  Transaction tx(store, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(store->SetState("status", state));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  state_ = state;
  if (page_) page_->Publish(state_, frozen0_);
  return Status::OK();
}

Status ServiceState::SetFreeze(Store* store, uint32_t view_id, bool frozen) {
  std::lock_guard<std::mutex> lock(mu_);
  ORVEL_RETURN_IF_ERROR(LoadLocked(store));
  Transaction tx(store, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(store->SetFreeze(view_id, frozen));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  if (view_id == 0) frozen0_ = frozen;
  if (page_ && view_id == 0) page_->Publish(state_, frozen0_);
  return Status::OK();
}

Status ServiceState::StartPage(Store* store, const std::string& path) {
  std::lock_guard<std::mutex> lock(mu_);
  ORVEL_RETURN_IF_ERROR(LoadLocked(store));
  auto page = std::make_unique<StatePageWriter>();
  ORVEL_RETURN_IF_ERROR(page->Create(path, state_, frozen0_));
  page_ = std::move(page);
  return Status::OK();
}

}  // namespace orvel::syncd
