// Dispatch inside entry.cgi: the api/method/version parameters, the registry
// look-up order (102, 103, 104), checks before the method, and failures.
#include <gtest/gtest.h>

#include <stdexcept>

#include "cgi/dispatcher.h"
#include "cgi/form_params.h"

namespace zemo::cgi {
namespace {

int g_processed = 0;

void Count(ZEMO::APIRequest*, ZEMO::APIResponse* r) {
  ++g_processed;
  r->SetSuccess();
}
int Refuse(ZEMO::APIRequest*, ZEMO::APIResponse*) { return 0; }
int Throw(ZEMO::APIRequest*, ZEMO::APIResponse*) { throw std::runtime_error("boom"); }

class Dispatcher : public ::testing::Test {
 protected:
  void SetUp() override {
    g_processed = 0;
    registry_.AddRange("A.B", "get", VersionRange{1, 3}, ApiMethod{Count, nullptr, "t"});
    registry_.Add("A.B", "set", 2, ApiMethod{Count, nullptr, "t"});
  }
  int Call(const std::string& api, const std::string& method, unsigned version) {
    ZEMO::APIRequest request(api, method, version, Json::Value(Json::objectValue));
    response_ = ZEMO::APIResponse();
    Dispatch(registry_, &request, &response_);
    return response_.GetErrorCode();
  }
  ApiRegistry registry_;
  ZEMO::APIResponse response_;
};

TEST_F(Dispatcher, LookupCodes) {
  EXPECT_EQ(0, Call("A.B", "get", 3));
  EXPECT_EQ(102, Call("A.C", "get", 1));
  EXPECT_EQ(103, Call("A.B", "put", 1));
  EXPECT_EQ(104, Call("A.B", "set", 1));
  EXPECT_EQ(104, Call("A.B", "get", 4));
  EXPECT_EQ(1, g_processed);
  EXPECT_FALSE(registry_.Add("A.B", "set", 2, ApiMethod{Count, nullptr, "dup"}));
}

TEST_F(Dispatcher, CheckRunsFirstAndCanRefuse) {
  ASSERT_TRUE(registry_.SetCheck("A.B", "get", 2, Refuse));
  EXPECT_FALSE(registry_.SetCheck("A.B", "get", 9, Refuse));
  EXPECT_EQ(120, Call("A.B", "get", 2));
  EXPECT_EQ("parameter check failed", response_.GetErrorDetails()["message"].asString());
  EXPECT_EQ(0, g_processed);
  EXPECT_EQ(0, Call("A.B", "get", 1));
}

TEST_F(Dispatcher, ExceptionsBecome401) {
  ASSERT_TRUE(registry_.SetCheck("A.B", "get", 1, Throw));
  EXPECT_EQ(401, Call("A.B", "get", 1));
  EXPECT_EQ("internal error", response_.GetErrorDetails()["message"].asString());
}

TEST_F(Dispatcher, RangesPerApi) {
  registry_.Add("Z.Z", "only", 5, ApiMethod{Count, nullptr, "t"});
  auto ranges = registry_.Ranges();
  EXPECT_EQ(1u, ranges["A.B"].min);
  EXPECT_EQ(3u, ranges["A.B"].max);
  EXPECT_EQ(5u, ranges["Z.Z"].min);
}

// A worker's modules serve under each request's own registry without being
// copied into it: found, listed and refused exactly as if they were added.
TEST_F(Dispatcher, BaseRegistryServesWhatTheRequestsOwnHasNot) {
  ApiRegistry request_registry;
  request_registry.Add("Own.Api", "query", 1, ApiMethod{Count, nullptr, "built-in"});
  request_registry.SetBase(&registry_);
  EXPECT_TRUE(request_registry.HasApi("A.B"));
  EXPECT_TRUE(request_registry.Has("A.B", "get", 2));
  const ApiMethod* found = nullptr;
  EXPECT_EQ(request_registry.Find("A.B", "set", 1, &found), ApiRegistry::Lookup::kNoVersion);
  EXPECT_EQ(request_registry.Find("A.B", "put", 1, &found), ApiRegistry::Lookup::kNoMethod);
  EXPECT_EQ(request_registry.Find("A.C", "get", 1, &found), ApiRegistry::Lookup::kNoApi);
  ASSERT_EQ(request_registry.Find("Own.Api", "query", 1, &found), ApiRegistry::Lookup::kFound);
  EXPECT_EQ(found->origin, "built-in");
  const auto ranges = request_registry.Ranges();
  EXPECT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges.at("A.B").max, 3u);
  EXPECT_EQ(ranges.at("Own.Api").min, 1u);
}

TEST(ApiTripleParams, VersionForms) {
  struct Case {
    const char* version;
    bool ok;
    unsigned value;
  } cases[] = {{"1", true, 1}, {"\"7\"", true, 7}, {"4294967295", true, 4294967295u},
               {"4294967296", false, 0}, {"1.5", false, 0}, {"true", false, 0},
               {"\"\"", false, 0}, {"[1]", false, 0}};
  for (const Case& c : cases) {
    RawParams raw{{"api", "A.B"}, {"method", "get"}, {"version", c.version}};
    ApiTriple t;
    ZEMO::APIResponse r;
    EXPECT_EQ(c.ok, ReadApiTriple(ToJsonParams(raw), &t, &r)) << c.version;
    EXPECT_EQ(c.ok ? c.value : 0u, t.version);
    EXPECT_EQ(c.ok ? 0 : 101, r.GetErrorCode());
  }
}

}  // namespace
}  // namespace zemo::cgi
