// dispatch: one request map in, one answer map out. Checks the protocol
// version (-1102), finds the op in the table (-1101 for an unknown op), runs
// the op's gates (admin peer, known caller, service state, freeze) and then
// its handler. Never throws: a handler's exception becomes -1117.
// Thread-safe: each call works on its own RequestContext.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "daemon.h"
#include "orvelcommon/pobject.h"
#include "space.h"

namespace orvel::syncd {

struct RequestContext {
  Daemon* d = nullptr;
  uid_t peer_uid = 0;
  std::string op;
  std::string user, sudo, session, sharing_token;
  std::string link_grant;  // the visitor's grant of a password link ("link_grant")
  std::string forward_ip;  // the web client's address ("forward"/"ip"), for the token throttle
  Caller caller;  // filled for ops that need one
  StoreLease store;  // leased for ops that use the database
  int client_fd = -1;  // the requesting connection (its hang-up stops long work), or -1
};

using OpHandler = Status (*)(RequestContext& ctx, const PObject& args, PObject* result);

enum OpFlags : unsigned {
  kOpAdmin = 1,      // the peer must be root or the daemon's own uid
  kOpCaller = 2,     // needs a known user (sudo only from a root peer)
  kOpEnabled = 4,    // refused (-1103) unless the service state is "enabled"
  kOpWrite = 8,      // refused (-1103) while view 0 is frozen
  kOpStore = 16,     // leases a database connection into ctx.store
  kOpVisitor = 32,   // with kOpCaller: also admits a visitor without an account
                     // who brings a sharing token (ctx.caller.user.name stays "")
};

struct OpSpec {
  const char* name;
  OpHandler handler;
  unsigned flags;
};

// The table of every op (docs/wire.md).
const std::vector<OpSpec>& OpTable();

// Handles one decoded request from a peer with uid peer_uid that came in on
// client_fd (-1 when not from a connection).
PObject Dispatch(Daemon* d, uid_t peer_uid, const PObject& request, int client_fd = -1);

// Argument readers: an absent key leaves *out as it is; a present key of the
// wrong kind is kErrInvalidArgument naming the key.
Status ArgString(const PObject& args, const char* key, std::string* out);
Status ArgBool(const PObject& args, const char* key, bool* out);
Status ArgUInt(const PObject& args, const char* key, uint64_t* out);
Status ArgStringList(const PObject& args, const char* key, std::vector<std::string>* out);

}  // namespace orvel::syncd
