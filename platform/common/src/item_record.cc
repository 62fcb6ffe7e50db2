// The item record's wire conversion; see item_record.h.
#include "orvelcommon/item_record.h"

namespace orvel {
namespace {

uint32_t U32(const PObject& v) { return static_cast<uint32_t>(v.asUInt64()); }

}  // namespace

int ItemRecordFromPObject(const PObject& p, ItemRecord& f) {
  if (!p.isMap()) return -1;
  f = ItemRecord();
  f.sync_id = p["sync_id"].asUInt64();
  f.max_id = p["max_id"].asUInt64();
  f.size = p["size"].asUInt64();
  f.created_time = U32(p["created_time"]);
  f.access_time = U32(p["access_time"]);
  f.modified_time = U32(p["modified_time"]);
  f.change_time = U32(p["change_time"]);
  f.parent_id = p["parent_id"].asString();
  f.file_id = p["file_id"].asString();
  f.permanent_link = p["permanent_link"].asString();
  f.display_path = p["display_path"].asString();
  f.original_path = p["original_path"].asString();
  f.path = p["path"].asString();
  f.tpx_path = p["tpx_path"].asString();
  f.name = p["name"].asString();
  f.hash = p["hash"].asString();
  f.removed = p["removed"].asBool();
  f.encrypted = p["encrypted"].asBool();
  f.starred = p["starred"].asBool();
  f.shared = p["shared"].asBool();
  f.adv_shared = p["adv_shared"].asBool();
  f.sync_to_device = p["sync_to_device"].asBool();
  f.type = static_cast<int>(p["type"].asInt64());
  f.properties = p["properties"].asString();
  f.app_properties = p["app_properties"].asString();
  for (const PObject& e : p["permissions"].asArray()) {
    f.permissions.push_back(PermissionInfo{e["permission_id"].asString(), e["type"].asString(),
                                           e["name"].asString(), e["role"].asString(),
                                           e["inherited"].asBool()});
  }
  for (const PObject& e : p["labels"].asArray()) {
    f.labels.push_back(LabelInfo{e["label_id"].asString(), e["name"].asString(), e["color"].asString()});
  }
  const PObject& owner = p["owner"];
  f.owner_name = owner["name"].asString();
  f.owner_display_name = owner["display_name"].asString();
  f.owner_uid = U32(owner["uid"]);
  const PObject& c = p["capabilities"];
  f.capabilities = Capabilities{c["can_preview"].asBool(), c["can_read"].asBool(),
                                c["can_write"].asBool(),   c["can_delete"].asBool(),
                                c["can_rename"].asBool(),  c["can_comment"].asBool(),
                                c["can_share"].asBool(),   c["can_encrypt"].asBool(),
                                c["can_organize"].asBool()};
  f.content_snippet = p["content_snippet"].asString();
  f.revisions = U32(p["revisions"]);
  f.content_type = p["content_type"].asString();
  return 0;
}

PObject ItemRecordToPObject(const ItemRecord& f) {
  PObject p = PObject::MakeMap();
  p["sync_id"] = static_cast<unsigned long long>(f.sync_id);
  p["max_id"] = static_cast<unsigned long long>(f.max_id);
  p["size"] = static_cast<unsigned long long>(f.size);
  p["created_time"] = f.created_time;
  p["access_time"] = f.access_time;
  p["modified_time"] = f.modified_time;
  p["change_time"] = f.change_time;
  p["parent_id"] = f.parent_id;
  p["file_id"] = f.file_id;
  p["permanent_link"] = f.permanent_link;
  p["display_path"] = f.display_path;
  p["original_path"] = f.original_path;
  p["path"] = f.path;
  p["tpx_path"] = f.tpx_path;
  p["name"] = f.name;
  p["hash"] = f.hash;
  p["removed"] = f.removed;
  p["encrypted"] = f.encrypted;
  p["starred"] = f.starred;
  p["shared"] = f.shared;
  p["adv_shared"] = f.adv_shared;
  p["sync_to_device"] = f.sync_to_device;
  p["type"] = f.type;
  p["properties"] = f.properties;
  p["app_properties"] = f.app_properties;
  PObject perms = PObject::MakeArray();
  for (const auto& e : f.permissions) {
    PObject q = PObject::MakeMap();
    q["permission_id"] = e.permission_id;
    q["type"] = e.type;
    q["name"] = e.name;
    q["role"] = e.role;
    q["inherited"] = e.inherited;
    perms.push_back(q);
  }
  p["permissions"] = perms;
  PObject labels = PObject::MakeArray();
  for (const auto& l : f.labels) {
    PObject q = PObject::MakeMap();
    q["label_id"] = l.label_id;
    q["name"] = l.name;
    q["color"] = l.color;
    labels.push_back(q);
  }
  p["labels"] = labels;
  p["owner"]["name"] = f.owner_name;
  p["owner"]["display_name"] = f.owner_display_name;
  p["owner"]["uid"] = f.owner_uid;
  const Capabilities& c = f.capabilities;
  PObject& cap = p["capabilities"];
  cap["can_preview"] = c.can_preview;
  cap["can_read"] = c.can_read;
  cap["can_write"] = c.can_write;
  cap["can_delete"] = c.can_delete;
  cap["can_rename"] = c.can_rename;
  cap["can_comment"] = c.can_comment;
  cap["can_share"] = c.can_share;
  cap["can_encrypt"] = c.can_encrypt;
  cap["can_organize"] = c.can_organize;
  p["content_snippet"] = f.content_snippet;
  p["revisions"] = f.revisions;
  p["content_type"] = f.content_type;
  return p;
}

}  // namespace orvel
