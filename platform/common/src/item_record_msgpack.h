// The item record straight to and from msgpack, for the listings: a page of
// a hundred records would otherwise become thousands of PObject map nodes on
// each side of the socket. Internal to orvelcommon (wire.cc and
// item_record_msgpack.cc). Pure functions; thread-safe.
#pragma once

#include <msgpack.h>

#include "orvelcommon/item_record.h"

namespace orvel::wire_internal {

// Whether o is a value Decode accepts (string keys in every map, no ext).
bool Decodable(const msgpack_object& o);

// What ItemRecordFromPObject makes of the PObject that o decodes to (o is
// Decodable). False, with out a default record, when o is not a map.
bool ItemRecordFromMsgpack(const msgpack_object& o, ItemRecord* out);

}  // namespace orvel::wire_internal
