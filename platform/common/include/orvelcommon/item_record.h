// The item record: what the daemon answers for one file or folder, and its
// conversion to and from the wire's map (docs/wire.md, "Item record"). The
// daemon builds it, the client library decodes it (where it is known as
// Nimbard::FileInfo), so both share one definition of the keys. Plain data
// and pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orvelcommon/pobject.h"

namespace orvel {

struct LabelInfo {
  std::string label_id;
  std::string name;
  std::string color;
};
struct PermissionInfo {
  std::string permission_id;
  std::string type;  // "user", "group", "link"
  std::string name;
  std::string role;  // "owner", "editor", "commenter", "viewer"
  bool inherited = false;
};
struct Capabilities {
  bool can_preview = false, can_read = false, can_write = false,
       can_delete = false, can_rename = false, can_comment = false,
       can_share = false, can_encrypt = false, can_organize = false;
};
struct ItemRecord {
  uint64_t sync_id = 0;
  uint64_t max_id = 0;
  uint64_t size = 0;
  uint32_t created_time = 0, access_time = 0, modified_time = 0, change_time = 0;
  std::string parent_id, file_id;
  std::string permanent_link;
  std::string display_path, original_path, path, tpx_path, name;
  std::string hash;
  bool removed = false, encrypted = false, starred = false, shared = false,
       adv_shared = false, sync_to_device = false;
  int type = 0;  // 0 file, 1 folder, 2 an entry that listings skip
  std::string properties, app_properties;  // JSON texts
  std::vector<PermissionInfo> permissions;
  std::vector<LabelInfo> labels;
  std::string owner_name, owner_display_name;
  uint32_t owner_uid = 0;
  Capabilities capabilities;
  std::string content_snippet;
  uint32_t revisions = 0;
  std::string content_type;
};

// Fills out from the wire map in (missing keys give the defaults). Returns 0,
// or -1 when in is not a map.
int ItemRecordFromPObject(const PObject& in, ItemRecord& out);
PObject ItemRecordToPObject(const ItemRecord& in);

// The records as one packed value: the bytes of an array of
// ItemRecordToPObject maps, written straight from the records.
PObject PackedItemRecords(const std::vector<ItemRecord>& records);

}  // namespace orvel
