// The item record straight to and from msgpack, for the listings: a page of
// a hundred records would otherwise become thousands of PObject map nodes on
// each side of the socket. Internal to orvelcommon (wire.cc and
// item_record_msgpack.cc). Pure functions; thread-safe.
#pragma once

#include <msgpack.h>

#include <vector>

#include "orvelcommon/item_record.h"

namespace orvel::wire_internal {

// Whether o is a value Decode accepts (string keys in every map, no ext).
bool Decodable(const msgpack_object& o);

// The array of records at data[*off] when it is exactly as
// PackedItemRecords writes it: *out and *off (moved past the array) set, true.
// False for anything else (the caller then decodes the general way); *out
// may then hold part of the records. The message must have passed ShapeFits.
bool CanonicalItemsFrom(const char* data, size_t len, size_t* off, std::vector<ItemRecord>* out);

// What ItemRecordFromPObject makes of the PObject that o decodes to (o is
// Decodable). False, with out a default record, when o is not a map.
bool ItemRecordFromMsgpack(const msgpack_object& o, ItemRecord* out);

}  // namespace orvel::wire_internal
