// See item.h.
#include "item.h"

namespace orvel::syncd {

Capabilities OwnerCapabilities() {
  Capabilities c;
  c.can_preview = c.can_read = c.can_write = c.can_delete = c.can_rename = true;
  c.can_comment = c.can_share = c.can_encrypt = c.can_organize = true;
  return c;
}

ItemRecord MakeFileInfo(Node&& n, std::string view_path, std::string tpx_path, const UserRecord& owner) {
  ItemRecord f;
  f.sync_id = n.sync_id;
  f.max_id = n.max_id;
  f.size = n.is_dir() ? 0 : n.size;
  f.created_time = static_cast<uint32_t>(n.created_time);
  f.access_time = static_cast<uint32_t>(n.access_time);
  f.modified_time = static_cast<uint32_t>(n.modified_time);
  f.change_time = static_cast<uint32_t>(n.change_time);
  f.name = n.parent_id.empty() ? "mydrive" : std::move(n.name);
  f.parent_id = std::move(n.parent_id);
  f.file_id = std::move(n.file_id);
  f.permanent_link = std::move(n.permanent_link);
  f.display_path = view_path;
  f.path = std::move(view_path);
  f.tpx_path = std::move(tpx_path);
  f.hash = std::move(n.hash);
  f.removed = n.removed;
  f.encrypted = n.encrypted;
  f.type = n.type;
  f.properties = n.properties.empty() ? "{}" : std::move(n.properties);
  f.app_properties = n.app_properties.empty() ? "{}" : std::move(n.app_properties);
  f.owner_name = owner.name;
  f.owner_display_name = owner.display_name.empty() ? owner.name : owner.display_name;
  f.owner_uid = owner.uid;
  f.capabilities = OwnerCapabilities();
  f.revisions = n.revisions;
  f.content_type = std::move(n.content_type);
  return f;
}

ItemRecord MakeFileInfo(const Node& n, const std::string& view_path, const std::string& tpx_path,
                        const UserRecord& owner) {
  return MakeFileInfo(Node(n), view_path, tpx_path, owner);
}

PObject MakeRecord(const Node& node, const std::string& view_path, const std::string& tpx_path,
                   const UserRecord& owner) {
  return ItemRecordToPObject(MakeFileInfo(node, view_path, tpx_path, owner));
}

}  // namespace orvel::syncd
