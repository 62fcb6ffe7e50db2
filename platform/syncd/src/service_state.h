// ServiceState: the service's state ("enabled", "disabled", "moving_db") and
// the freeze flag of view 0, kept in memory in front of their rows in the
// database. Every web request reads both (its status check, then the
// operation's own check), and only the admin operations change them, so
// reads take a lock instead of a read transaction. The rows stay the truth:
// they are read on first use and every change is committed before memory
// follows. Thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "db/store.h"
#include "orvelcommon/state_page.h"

namespace orvel::syncd {

class ServiceState {
 public:
  // The state and the freeze flag of view_id. The rows are read from store
  // the first time only; another view's flag (which no web request asks
  // for) is read from store every time.
  Status Get(Store* store, uint32_t view_id, std::string* state, bool* frozen);
  // Commits the new row in a write transaction of store's, then updates
  // memory. Changes are serialised, so memory ends as the last commit left
  // the rows.
  Status SetState(Store* store, const std::string& state);
  Status SetFreeze(Store* store, uint32_t view_id, bool frozen);
  // Publishes the state and view 0's flag on the page at path from now on
  // (orvelcommon/state_page.h), so that connected clients need not ask.
  Status StartPage(Store* store, const std::string& path);

 private:
  // Reads the rows once; mu_ held.
  Status LoadLocked(Store* store);

  std::mutex mu_;
  bool loaded_ = false;
  std::string state_ = "enabled";  // no row: enabled
  bool frozen0_ = false;
  std::unique_ptr<StatePageWriter> page_;  // null until StartPage
};

}  // namespace orvel::syncd
