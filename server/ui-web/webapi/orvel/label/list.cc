// "list": every label of the caller ({label_id, name, color}), by name. A
// person has few labels (they name them by hand), so there is no paging;
// items carry only the labels they have, so this is where a client learns
// the labels that are on nothing yet.
#include "webapi/orvel/label/list.h"

#include "orvel/client/client_common.h"

namespace {
constexpr const char kLogSource[] = "label-list";
}  // namespace

LabelListHandler::LabelListHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Label", "list", 1, 1);
}

int LabelListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                             BridgeResponse& response) {
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "label_list",
                                  PObject::MakeMap(), &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["labels"] = Json::Value(Json::arrayValue);
  if (result["labels"].isArray()) {
    for (const PObject& label : result["labels"].asArray()) {
      Json::Value l(Json::objectValue);
      l["label_id"] = label["label_id"].asString();
      l["name"] = label["name"].asString();
      l["color"] = label["color"].asString();
      data["labels"].append(l);
    }
  }
  data["total"] = data["labels"].size();
  response.SetJsonResponse(std::move(data));
  return 0;
}
