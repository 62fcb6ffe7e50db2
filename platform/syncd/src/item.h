// item: the wire's item record (docs/wire.md, "Item record") made from a
// row. The record goes through the conversion of orvelcommon/item_record.h
// (ItemRecordToPObject), which the client library decodes too, so the daemon
// and its clients share one definition of the keys. Thread-safe.
#pragma once

#include <string>

#include "db/store.h"
#include "orvelcommon/item_record.h"
#include "orvelcommon/pobject.h"
#include "orvelcommon/user_db.h"

namespace orvel::syncd {

// Capabilities of an owner on an own item: everything.
Capabilities OwnerCapabilities();

// The record of node as seen by its owner. view_path is "/mydrive/...",
// tpx_path the real path on the server.
ItemRecord MakeFileInfo(const Node& node, const std::string& view_path,
                               const std::string& tpx_path, const UserRecord& owner);
// The same, taking node's strings and the paths instead of copying them.
ItemRecord MakeFileInfo(Node&& node, std::string view_path, std::string tpx_path, const UserRecord& owner);
PObject MakeRecord(const Node& node, const std::string& view_path, const std::string& tpx_path,
                   const UserRecord& owner);

}  // namespace orvel::syncd
