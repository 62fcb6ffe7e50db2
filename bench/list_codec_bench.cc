// The codec of one listing page, in process: the daemon's encoding of 100
// item records and the module's way from the answer's bytes to the JSON text
// of the page, each the general way (a PObject map per record, a jsoncpp tree
// per item) and the listings' direct way (records packed straight into
// msgpack, decoded straight into records, written straight as text). Prints
// microseconds per page, the best of five rounds of 200.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bridge/bridge-response.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/orvel_list.h"
#include "orvelcommon/item_record.h"
#include "orvelcommon/wire.h"
#include "zemo/json_text.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<orvel::ItemRecord> Page() {
  std::vector<orvel::ItemRecord> page(100);
  for (size_t i = 0; i < page.size(); ++i) {
    orvel::ItemRecord& f = page[i];
    f.sync_id = 1000 + i, f.max_id = 2000, f.size = 4096;
    f.created_time = f.access_time = f.modified_time = f.change_time = 1700000000;
    f.parent_id = "17", f.file_id = std::to_string(100 + i);
    f.display_path = f.path = "/mydrive/f100/file-" + std::to_string(100000 + i) + ".txt";
    f.tpx_path = "/volume1/ZemoraOrvel/homes/alice/f100/file-" + std::to_string(100000 + i) + ".txt";
    f.name = "file-" + std::to_string(100000 + i) + ".txt";
    f.hash = std::string(64, 'e'), f.properties = f.app_properties = "{}";
    f.owner_name = f.owner_display_name = "alice", f.owner_uid = 1026;
    f.capabilities.can_read = f.capabilities.can_write = true;
    f.content_type = "text/plain";
  }
  return page;
}

void Time(const char* what, const std::function<void()>& fn) {
  double best = 1e18;
  for (int round = 0; round < 5; ++round) {
    const auto start = Clock::now();
    for (int i = 0; i < 200; ++i) fn();
    best = std::min(best, std::chrono::duration<double, std::micro>(Clock::now() - start).count() / 200);
  }
  std::printf("  %-58s %8.1f us\n", what, best);
}

PObject Answer(PObject items) {
  PObject result = PObject::MakeMap();
  result["items"] = std::move(items);
  result["total"] = 100;
  return orvel::wire::OkAnswer(std::move(result));
}

}  // namespace

int main() {
  const std::vector<orvel::ItemRecord> page = Page();
  const std::string bytes = orvel::wire::Encode(Answer(orvel::PackedItemRecords(page)));
  std::printf("one page of 100 records: %zu bytes of msgpack\n", bytes.size());
  std::printf("daemon, records to the answer's bytes\n");
  Time("a PObject map per record, then encoded", [&] {
    PObject items = PObject::MakeArray();
    for (const auto& r : page) items.push_back(orvel::ItemRecordToPObject(r));
    orvel::wire::Encode(Answer(std::move(items)));
  });
  Time("packed straight from the records", [&] { orvel::wire::Encode(Answer(orvel::PackedItemRecords(page))); });

  std::printf("module, the answer's bytes to the page's JSON text\n");
  Time("PObject maps, records, a jsoncpp tree per item, its text", [&] {
    PObject answer;
    orvel::wire::Decode(bytes.data(), bytes.size(), &answer);
    Json::Value items(Json::arrayValue);
    for (const PObject& p : answer["result"]["items"].asArray()) {
      orvel::ItemRecord r;
      orvel::ItemRecordFromPObject(p, r);
      Json::Value item;
      ConvertFileInfoToJSon(r, item);
      items.append(std::move(item));
    }
    Json::Value data(Json::objectValue);
    data["items"] = std::move(items);
    data["total"] = 100;
    zemo::CompactJson(data);
  });
  Time("records decoded straight, text written straight", [&] {
    PObject answer;
    std::vector<orvel::ItemRecord> records;
    orvel::wire::DecodeWithItems(bytes.data(), bytes.size(), &answer, &records);
    Json::Value rest(Json::objectValue);
    rest["total"] = 100;
    BridgeResponse response;
    orvel::module::SetItemsAnswer(records, true, rest, response);
  });
  Time("  of which records decoded straight", [&] {
    PObject answer;
    std::vector<orvel::ItemRecord> records;
    orvel::wire::DecodeWithItems(bytes.data(), bytes.size(), &answer, &records);
  });
  return 0;
}
