// The item record's wire conversion, shared by the daemon (which encodes it)
// and the client (which decodes it as Nimbard::FileInfo).
#include <gtest/gtest.h>

#include <msgpack.h>

#include <climits>
#include <cstring>
#include <type_traits>
#include <vector>

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

// The listings' fast paths: records packed straight into msgpack, and
// answers decoded straight into records, must give what the PObject paths
// give, byte for byte and field for field.
TEST(ItemRecordFastPaths, PackedRecordsAreTheBytesOfTheMaps) {
  orvel::ItemRecord odd = FullRecord();
  odd.type = -3;
  odd.sync_id = ~0ULL;
  odd.name = std::string("nul\0\xff", 5);
  odd.permissions.push_back({"link:ab", "link", "", "viewer", false});
  for (const std::vector<orvel::ItemRecord>& records :
       {std::vector<orvel::ItemRecord>{}, {orvel::ItemRecord()}, {FullRecord(), odd, orvel::ItemRecord()}}) {
    PObject maps = PObject::MakeArray();
    for (const auto& r : records) maps.push_back(orvel::ItemRecordToPObject(r));
    PObject answer = PObject::MakeMap();
    answer["items"] = orvel::PackedItemRecords(records);
    PObject expected = PObject::MakeMap();
    expected["items"] = maps;
    EXPECT_EQ(orvel::wire::Encode(answer), orvel::wire::Encode(expected)) << records.size();
  }
}

// Every width of every kind: integers on each side of each encoding's
// limit, strings and lists of each length class.
std::vector<orvel::ItemRecord> RecordsAtEveryEncodingLimit() {
  const uint64_t unsigned_limits[] = {0, 127, 128, 255, 256, 65535, 65536, 0xffffffffull, 0x100000000ull, ~0ull};
  const int signed_limits[] = {-1, -32, -33, -128, -129, -32768, -32769, INT_MIN, 0, 127, 128, 65536, INT_MAX};
  const size_t lengths[] = {0, 31, 32, 255, 256, 65535, 65536};
  std::vector<orvel::ItemRecord> records;
  for (uint64_t v : unsigned_limits) {
    orvel::ItemRecord r;
    r.size = v;
    r.owner_uid = static_cast<uint32_t>(v);
    records.push_back(r);
  }
  for (int v : signed_limits) {
    orvel::ItemRecord r;
    r.type = v;
    records.push_back(r);
  }
  for (size_t n : lengths) {
    orvel::ItemRecord r;
    r.name = std::string(n, 'n');
    records.push_back(r);
  }
  for (size_t n : {15, 16, 17}) {
    orvel::ItemRecord r;
    r.labels.resize(n);
    r.permissions.resize(n);
    records.push_back(r);
  }
  return records;
}

TEST(ItemRecordFastPaths, PackedRecordsMatchTheMapsAtEveryEncodingLimit) {
  const std::vector<orvel::ItemRecord> records = RecordsAtEveryEncodingLimit();
  PObject maps = PObject::MakeArray();
  for (const auto& r : records) maps.push_back(orvel::ItemRecordToPObject(r));
  EXPECT_EQ(orvel::wire::Encode(orvel::PackedItemRecords(records)), orvel::wire::Encode(maps));
}

// Packs {"ok": true, "result": {"total": 2, "items": [<items>]}} by hand,
// so that a test can put any value where a record is expected (and more
// members after it, with result_members).
std::string AnswerWith(void (*items)(msgpack_packer*), size_t result_members = 2) {
  msgpack_sbuffer sbuf;
  msgpack_sbuffer_init(&sbuf);
  msgpack_packer pk;
  msgpack_packer_init(&pk, &sbuf, msgpack_sbuffer_write);
  auto key = [&](const char* k) { msgpack_pack_str_with_body(&pk, k, std::strlen(k)); };
  msgpack_pack_map(&pk, 2);
  key("ok");
  msgpack_pack_true(&pk);
  key("result");
  msgpack_pack_map(&pk, result_members);
  key("total");
  msgpack_pack_uint64(&pk, 2);
  key("items");
  items(&pk);
  std::string out(sbuf.data, sbuf.size);
  msgpack_sbuffer_destroy(&sbuf);
  return out;
}

void PackKey(msgpack_packer* pk, const char* k) { msgpack_pack_str_with_body(pk, k, std::strlen(k)); }

// DecodeWithItems gives, record for record, what the general decoder and
// ItemRecordFromPObject give, and the rest of the answer as Decode does.
void ExpectDecodedAsTheMapsAre(const std::string& bytes, const std::string& what) {
  PObject slow;
  ASSERT_TRUE(orvel::wire::Decode(bytes.data(), bytes.size(), &slow).ok()) << what;
  std::vector<orvel::ItemRecord> expected;
  for (const PObject& p : slow["result"]["items"].asArray()) {
    expected.emplace_back();
    orvel::ItemRecordFromPObject(p, expected.back());
  }
  PObject fast;
  std::vector<orvel::ItemRecord> records(5);
  ASSERT_TRUE(orvel::wire::DecodeWithItems(bytes.data(), bytes.size(), &fast, &records).ok()) << what;
  ASSERT_EQ(records.size(), expected.size()) << what;
  for (size_t r = 0; r < records.size(); ++r) {
    EXPECT_EQ(orvel::wire::Encode(orvel::ItemRecordToPObject(records[r])),
              orvel::wire::Encode(orvel::ItemRecordToPObject(expected[r])))
        << what << ", record " << r;
  }
  slow["result"].remove("items");
  EXPECT_EQ(fast, slow) << what;
}

TEST(ItemRecordFastPaths, DecodedRecordsAreWhatTheMapsGive) {
  void (*const cases[])(msgpack_packer*) = {
      [](msgpack_packer* pk) {  // well-formed records and a non-map element
        msgpack_pack_array(pk, 3);
        const std::string full = orvel::wire::Encode(orvel::ItemRecordToPObject(FullRecord()));
        pk->callback(pk->data, full.data(), full.size());
        msgpack_pack_nil(pk);
        msgpack_pack_map(pk, 0);
      },
      [](msgpack_packer* pk) {  // every member in an unexpected kind
        msgpack_pack_array(pk, 1);
        msgpack_pack_map(pk, 12);
        PackKey(pk, "size"), msgpack_pack_int64(pk, -5);
        PackKey(pk, "sync_id"), msgpack_pack_double(pk, 12.75);
        PackKey(pk, "max_id"), msgpack_pack_true(pk);
        PackKey(pk, "modified_time"), msgpack_pack_str_with_body(pk, "9", 1);
        PackKey(pk, "removed"), msgpack_pack_uint64(pk, 2);
        PackKey(pk, "starred"), msgpack_pack_str_with_body(pk, "yes", 3);
        PackKey(pk, "name"), msgpack_pack_bin_with_body(pk, "bin", 3);
        PackKey(pk, "type"), msgpack_pack_double(pk, -1.5);
        PackKey(pk, "owner"), msgpack_pack_array(pk, 0);
        PackKey(pk, "permissions"), msgpack_pack_array(pk, 2), msgpack_pack_uint64(pk, 1),
            msgpack_pack_map(pk, 1), PackKey(pk, "role"), msgpack_pack_str_with_body(pk, "viewer", 6);
        PackKey(pk, "labels"), msgpack_pack_map(pk, 0);
        PackKey(pk, "unknown"), msgpack_pack_map(pk, 1), PackKey(pk, "x"), msgpack_pack_nil(pk);
      },
      [](msgpack_packer* pk) {  // a repeated key: the last one counts
        msgpack_pack_array(pk, 1);
        msgpack_pack_map(pk, 4);
        PackKey(pk, "labels"), msgpack_pack_array(pk, 1), msgpack_pack_map(pk, 1), PackKey(pk, "name"),
            msgpack_pack_str_with_body(pk, "a", 1);
        PackKey(pk, "labels"), msgpack_pack_array(pk, 0);
        PackKey(pk, "owner"), msgpack_pack_map(pk, 1), PackKey(pk, "uid"), msgpack_pack_uint64(pk, 7);
        PackKey(pk, "owner"), msgpack_pack_map(pk, 1), PackKey(pk, "name"), msgpack_pack_str_with_body(pk, "b", 1);
      },
      [](msgpack_packer* pk) { msgpack_pack_str_with_body(pk, "not a list", 10); },
  };
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    ExpectDecodedAsTheMapsAre(AnswerWith(cases[i]), "case " + std::to_string(i));
  }
}

// A listing's answer as the daemon sends it: the records packed straight,
// next to other members of "result". The records are read straight from the
// bytes when every one is exactly as the packer writes it; one record in
// another form (a binary name, a wide "type"), or a repeated "items", sends
// the whole answer the general way. Either way the result is the same.
TEST(ItemRecordFastPaths, PackedPagesDecodeToTheRecordsTheyCameFrom) {
  std::vector<orvel::ItemRecord> records = RecordsAtEveryEncodingLimit();
  records.push_back(FullRecord());
  std::vector<orvel::ItemRecord> fixint_types;  // "type" in one byte, as the daemon's 0, 1 and 2
  for (const orvel::ItemRecord& r : records) {
    if (r.type >= -32 && r.type <= 127) fixint_types.push_back(r);
  }
  auto answer = [](const std::vector<orvel::ItemRecord>& page) {
    PObject result = PObject::MakeMap();
    result["items"] = orvel::PackedItemRecords(page);
    result["total"] = static_cast<unsigned long long>(page.size());
    result["offset"] = 0ull;
    return orvel::wire::Encode(orvel::wire::OkAnswer(std::move(result)));
  };
  ExpectDecodedAsTheMapsAre(answer(fixint_types), "every encoding limit, fixint types");
  ExpectDecodedAsTheMapsAre(answer(records), "wider types too");
  ExpectDecodedAsTheMapsAre(answer({}), "an empty page");

  std::vector<orvel::ItemRecord> page(3, FullRecord());
  std::string bytes = answer(page);
  const std::string name = std::string("\xa4name\xa1") + "a";  // "name": "a" as the packer writes it
  const size_t last = bytes.rfind(name);
  ASSERT_NE(last, std::string::npos);
  bytes[last + 5] = '\xc4';  // the last record's name as bin 8 of one byte
  bytes.insert(last + 6, 1, '\x01');
  ExpectDecodedAsTheMapsAre(bytes, "a binary name in the last record");

  ExpectDecodedAsTheMapsAre(AnswerWith([](msgpack_packer* pk) {
                              const std::string packed =
                                  orvel::wire::Encode(orvel::PackedItemRecords({FullRecord()}));
                              pk->callback(pk->data, packed.data(), packed.size());
                              PackKey(pk, "items");
                              msgpack_pack_array(pk, 0);
                            }, 3),
                            "items twice");
}

TEST(ItemRecordFastPaths, MalformedRecordsFailAsTheGeneralDecoderDoes) {
  const std::string bytes = AnswerWith([](msgpack_packer* pk) {
    msgpack_pack_array(pk, 1);
    msgpack_pack_map(pk, 1);
    msgpack_pack_uint64(pk, 1);  // a key that is not a string
    msgpack_pack_nil(pk);
  });
  PObject out;
  std::vector<orvel::ItemRecord> records;
  const orvel::Status slow = orvel::wire::Decode(bytes.data(), bytes.size(), &out);
  const orvel::Status fast = orvel::wire::DecodeWithItems(bytes.data(), bytes.size(), &out, &records);
  EXPECT_EQ(fast.code(), slow.code());
  EXPECT_EQ(fast.message(), "malformed message");
  EXPECT_FALSE(fast.ok());
  const std::string cut = bytes.substr(0, bytes.size() - 1);
  EXPECT_EQ(orvel::wire::DecodeWithItems(cut.data(), cut.size(), &out, &records).message(), "malformed message");
}

}  // namespace
