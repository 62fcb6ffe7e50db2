// The item object of a file record as a tree or as text; see item_json.h.
#include "orvel/common/item_json.h"

#include <syslog.h>

#include <charconv>
#include <cstdio>
#include <cstring>

#include "zemo/json_text.h"

namespace orvel::module {
namespace {

constexpr const char kSrc[] = "server/ui-web/src/orvel/common/orvel_utils";

// Builds a jsoncpp tree: each value goes to the open object under its key,
// or is appended to the open array (key null).
class TreeSink {
 public:
  explicit TreeSink(Json::Value& root) {
    if (!root.isObject()) root = Json::Value(Json::objectValue);
    open_.push_back(&root);
  }
  void Object(const char* key) { open_.push_back(&Put(key, Json::Value(Json::objectValue))); }
  void Array(const char* key) { open_.push_back(&Put(key, Json::Value(Json::arrayValue))); }
  void EndObject() { open_.pop_back(); }
  void EndArray() { open_.pop_back(); }
  void String(const char* key, const std::string& v) { Put(key, v); }
  void UInt(const char* key, uint64_t v) { Put(key, Json::UInt64(v)); }
  void Bool(const char* key, bool v) { Put(key, v); }
  bool Tree(const char* key, const Json::Value& v) {
    Put(key, v);
    return true;
  }

 private:
  Json::Value& Put(const char* key, Json::Value v) {
    Json::Value& top = *open_.back();
    if (key == nullptr) return top.append(std::move(v));
    return top[key] = std::move(v);
  }
  std::vector<Json::Value*> open_;
};

// Writes compact text; the caller gives keys in the order a tree's writer
// would (sorted), which WriteMembers does. Keys are the literals below, plain
// ASCII that needs no escaping.
class TextSink {
 public:
  explicit TextSink(std::string* out) : out_(out) {}
  void Object(const char* key) { Open(key, '{'); }
  void Array(const char* key) { Open(key, '['); }
  void EndObject() { Close('}'); }
  void EndArray() { Close(']'); }
  void String(const char* key, const std::string& v) {
    Prefix(key);
    zemo::AppendJsonString(v, out_);
  }
  void UInt(const char* key, uint64_t v) {
    Prefix(key);
    zemo::AppendJsonInteger(v, out_);
  }
  void Bool(const char* key, bool v) {
    Prefix(key);
    out_->append(v ? "true" : "false");
  }
  bool Tree(const char* key, const Json::Value& v) {
    Prefix(key);
    if (v.isObject() && v.empty()) {  // most items' properties
      out_->append("{}", 2);
      return true;
    }
    return zemo::AppendCompactJson(v, out_);
  }

 private:
  // The comma before a member that is not its container's first, then the
  // quoted key: one append instead of four.
  void Prefix(const char* key) {
    char buf[80];
    size_t n = 0;
    if (depth_ > 0) {
      if (!first_[depth_ - 1]) buf[n++] = ',';
      first_[depth_ - 1] = false;
    }
    if (key != nullptr) {
      const size_t len = std::strlen(key);  // the keys below, all short
      buf[n++] = '"';
      std::memcpy(buf + n, key, len);
      n += len;
      buf[n++] = '"';
      buf[n++] = ':';
    }
    if (n > 0) out_->append(buf, n);
  }
  void Open(const char* key, char opener) {
    Prefix(key);
    out_->push_back(opener);
    first_[depth_++] = true;
  }
  void Close(char closer) {
    out_->push_back(closer);
    --depth_;
  }
  std::string* out_;
  // Per open container, whether nothing was written in it yet. An item's
  // text nests four deep at most (item, shared_with, a permission).
  bool first_[8] = {};
  size_t depth_ = 0;
};

const char* TypeName(int type) {
  if (type == 0) return "file";
  if (type == 1) return "dir";
  return "";
}

std::string Decimal(uint64_t value) {
  char text[24];
  const std::to_chars_result r = std::to_chars(text, text + sizeof(text), value);
  return std::string(text, r.ptr);
}

// Parses a JSON text (comments allowed) into out; false on a syntax error.
bool ParseProperties(const std::string& text, Json::Value& out) {
  if (text == "{}") {  // the common case; spares a reader per item of a listing
    out = Json::Value(Json::objectValue);
    return true;
  }
  Json::Reader reader;
  return reader.parse(text, out, true);
}

template <class Sink>
void WriteCapabilities(const Nimbard::Capabilities& c, Sink& out) {
  out.Object("capabilities");
  out.Bool("can_comment", c.can_comment);
  out.Bool("can_delete", c.can_delete);
  out.Bool("can_encrypt", c.can_encrypt);
  out.Bool("can_organize", c.can_organize);
  out.Bool("can_preview", c.can_preview);
  out.Bool("can_read", c.can_read);
  out.Bool("can_rename", c.can_rename);
  out.Bool("can_share", c.can_share);
  out.Bool("can_write", c.can_write);
  out.EndObject();
}

template <class Sink>
void WriteLabels(const std::vector<Nimbard::LabelInfo>& labels, Sink& out) {
  out.Array("labels");
  for (const Nimbard::LabelInfo& label : labels) {
    out.Object(nullptr);
    out.String("color", label.color);
    out.String("label_id", label.label_id);
    out.String("name", label.name);
    out.EndObject();
  }
  out.EndArray();
}

template <class Sink>
void WriteOwner(const Nimbard::FileInfo& info, Sink& out) {
  out.Object("owner");
  out.String("display_name", info.owner_display_name);
  out.String("name", info.owner_name);
  out.UInt("uid", info.owner_uid);
  out.EndObject();
}

template <class Sink>
void WriteSharedWith(const std::vector<Nimbard::PermissionInfo>& permissions, Sink& out) {
  out.Array("shared_with");
  for (const Nimbard::PermissionInfo& p : permissions) {
    out.Object(nullptr);
    out.Bool("inherited", p.inherited);
    out.String("name", p.name);
    out.String("permission_id", p.permission_id);
    out.String("role", p.role);
    out.String("type", p.type);
    out.EndObject();
  }
  out.EndArray();
}

// The members of the item object, keys in sorted order. False when a
// properties tree cannot be written by the sink.
template <class Sink>
bool WriteMembers(const Nimbard::FileInfo& info, Sink& out) {
  Json::Value properties, app_properties;
  if (!ParseProperties(info.properties, properties)) {
    syslog(LOG_ERR, "%s:%d Properties cannot be parsed.\n", kSrc, __LINE__);
  }
  if (!ParseProperties(info.app_properties, app_properties)) {
    syslog(LOG_ERR, "%s:%d App properties cannot be parsed.\n", kSrc, __LINE__);
  }
  out.UInt("access_time", info.access_time);
  out.Bool("adv_shared", info.adv_shared);
  if (!out.Tree("app_properties", app_properties)) return false;
  WriteCapabilities(info.capabilities, out);
  out.UInt("change_time", info.change_time);
  out.String("content_snippet", info.content_snippet);
  out.String("content_type", info.content_type);
  out.UInt("created_time", info.created_time);
  out.String("display_path", info.display_path);
  out.Bool("encrypted", info.encrypted);
  out.String("file_id", info.file_id);
  out.String("hash", info.hash);
  out.Object("image_metadata");
  out.UInt("time", info.modified_time);
  out.EndObject();
  WriteLabels(info.labels, out);
  out.UInt("max_id", info.max_id);
  out.UInt("modified_time", info.modified_time);
  out.String("name", info.name);
  if (!info.original_path.empty()) out.String("original_path", info.original_path);
  WriteOwner(info, out);
  out.String("parent_id", info.parent_id);
  out.String("path", info.path);
  out.String("permanent_link", info.permanent_link);
  if (!out.Tree("properties", properties)) return false;
  out.Bool("removed", info.removed);
  out.UInt("revisions", info.revisions);
  out.Bool("shared", info.shared);
  WriteSharedWith(info.permissions, out);
  out.UInt("size", info.size);
  out.Bool("starred", info.starred);
  out.UInt("sync_id", info.sync_id);
  out.Bool("sync_to_device", info.sync_to_device);
  out.String("tpx_path", info.tpx_path);
  out.String("type", TypeName(info.type));
  out.String("version_id", Decimal(info.sync_id));
  return true;
}

}  // namespace

void WriteItemTree(const Nimbard::FileInfo& info, Json::Value& out) {
  TreeSink sink(out);
  WriteMembers(info, sink);
}

bool AppendItemText(const Nimbard::FileInfo& info, std::string* out) {
  TextSink sink(out);
  sink.Object(nullptr);
  if (!WriteMembers(info, sink)) return false;
  sink.EndObject();
  return true;
}

}  // namespace orvel::module
