// The item record's wire conversion, shared by the daemon (which encodes it)
// and the client (which decodes it as Nimbard::FileInfo).
#include <gtest/gtest.h>

#include <type_traits>

#include "nimbard/nimbard.h"
#include "orvelcommon/item_record.h"
#include "orvelcommon/wire.h"

namespace {

static_assert(std::is_same_v<Nimbard::FileInfo, orvel::ItemRecord>);

orvel::ItemRecord FullRecord() {
  orvel::ItemRecord r;
  r.sync_id = 1ULL << 40;
  r.max_id = 7;
  r.size = 5ULL << 32;
  r.created_time = 1, r.access_time = 2, r.modified_time = 3, r.change_time = 4;
  r.parent_id = "p", r.file_id = "f", r.permanent_link = "l";
  r.display_path = "/mydrive/d", r.original_path = "/o", r.path = "/mydrive/a", r.tpx_path = "/t";
  r.name = "a", r.hash = "h";
  r.removed = r.encrypted = r.starred = r.shared = r.adv_shared = r.sync_to_device = true;
  r.type = 1;
  r.properties = "{\"k\":1}", r.app_properties = "{}";
  r.permissions = {{"3", "group", "staff", "editor", true}};
  r.labels = {{"9", "red one", "red"}};
  r.owner_name = "alice", r.owner_display_name = "Alice", r.owner_uid = 1001;
  r.capabilities.can_read = r.capabilities.can_organize = true;
  r.content_snippet = "s", r.revisions = 2, r.content_type = "text/plain";
  return r;
}

// Every field survives the daemon's encoding, the msgpack frame and the
// client's decoding: a key spelled differently on one side shows here.
TEST(ItemRecord, EveryFieldSurvivesTheWire) {
  const orvel::ItemRecord in = FullRecord();
  PObject decoded;
  const std::string bytes = orvel::wire::Encode(orvel::ItemRecordToPObject(in));
  ASSERT_TRUE(orvel::wire::Decode(bytes.data(), bytes.size(), &decoded).ok());
  orvel::ItemRecord out;
  ASSERT_EQ(orvel::ItemRecordFromPObject(decoded, out), 0);
  EXPECT_EQ(orvel::wire::Encode(orvel::ItemRecordToPObject(out)), bytes);
  EXPECT_EQ(out.sync_id, in.sync_id);
  EXPECT_EQ(out.size, in.size);
  EXPECT_EQ(out.owner_uid, 1001u);
  ASSERT_EQ(out.permissions.size(), 1u);
  EXPECT_TRUE(out.permissions[0].inherited);
  EXPECT_EQ(out.permissions[0].role, "editor");
  ASSERT_EQ(out.labels.size(), 1u);
  EXPECT_EQ(out.labels[0].color, "red");
  EXPECT_TRUE(out.capabilities.can_organize);
  EXPECT_FALSE(out.capabilities.can_write);
}

TEST(ItemRecord, NonMapIsRefusedAndLeavesTheRecord) {
  orvel::ItemRecord out = FullRecord();
  EXPECT_EQ(orvel::ItemRecordFromPObject(PObject("x"), out), -1);
  EXPECT_EQ(out.name, "a");
  EXPECT_EQ(Nimbard::FileInfoFromPObject(PObject::MakeArray(), out), -1);
  EXPECT_EQ(out.labels.size(), 1u);
}

}  // namespace
