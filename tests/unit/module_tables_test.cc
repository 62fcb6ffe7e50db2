// The module's exported tables, its parameter check of "convert_office" and
// the entry's answer for a method no handler serves.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>
#include <vector>

#include "bridge/module-entry.h"
#include "module_test_util.h"

namespace {

const std::vector<std::string> kMethodOrder = {"list",
                                               "shared_with_me",
                                               "shared_with_others",
                                               "get",
                                               "update",
                                               "download",
                                               "create",
                                               "convert_office",
                                               "upload",
                                               "upload_from_tpx",
                                               "delete",
                                               "copy",
                                               "move",
                                               "search",
                                               "recent",
                                               "label",
                                               "star",
                                               "list_labelled",
                                               "list_starred",
                                               "request_access",
                                               "get_thumbnail",
                                               "list_ancestor"};

const std::vector<std::string> kCheckOrder = {"request_access",
                                              "move",
                                              "list_ancestor",
                                              "shared_with_others",
                                              "download",
                                              "create",
                                              "label",
                                              "get_thumbnail",
                                              "upload_from_tpx",
                                              "star",
                                              "get",
                                              "update",
                                              "copy",
                                              "recent",
                                              "search",
                                              "list_labelled",
                                              "list",
                                              "upload",
                                              "shared_with_me",
                                              "list_starred",
                                              "convert_office",
                                              "delete"};

size_t CountRows(const ZemoAPIEntry* table) {
  size_t n = 0;
  while (table[n].api != nullptr) ++n;
  return n;
}

size_t CountRows(const ZemoAPICheckEntry* table) {
  size_t n = 0;
  while (table[n].api != nullptr) ++n;
  return n;
}

TEST(ModuleTables, MethodTableHasThreeVersionBlocksThenBackupTasks) {
  const ZemoAPIEntry* table = GetAPITable();
  ASSERT_EQ(table, gTable);
  ASSERT_EQ(CountRows(table), 67u);
  size_t row = 0;
  for (unsigned version = 1; version <= 3; ++version) {
    for (const std::string& method : kMethodOrder) {
      SCOPED_TRACE(method);
      EXPECT_STREQ(table[row].api, "ZEMO.ZemoraOrvel.Files");
      EXPECT_EQ(table[row].version, version);
      EXPECT_EQ(table[row].method, method);
      EXPECT_EQ(table[row].process, &Process);
      ++row;
    }
  }
  EXPECT_EQ(table[66].version, 3u);
  EXPECT_STREQ(table[66].method, "list_backup_tasks");
  EXPECT_EQ(table[66].process, &Process);
  const ZemoAPIEntry& end = table[67];
  EXPECT_EQ(end.api, nullptr);
  EXPECT_EQ(end.version, 0u);
  EXPECT_EQ(end.method, nullptr);
  EXPECT_EQ(end.process, nullptr);
}

TEST(ModuleTables, BackupTasksIsServedInVersionThreeOnly) {
  int rows = 0;
  for (const ZemoAPIEntry* e = gTable; e->api != nullptr; ++e) {
    if (std::string(e->method) == "list_backup_tasks") {
      ++rows;
      EXPECT_EQ(e->version, 3u);
    }
  }
  EXPECT_EQ(rows, 1);
}

TEST(ModuleTables, CheckTableRunsVersionThreeTwoOneWithItsOwnOrder) {
  const ZemoAPICheckEntry* table = GetAPICheckTable();
  ASSERT_EQ(table, gCheckTable);
  ASSERT_EQ(CountRows(table), 67u);
  EXPECT_EQ(table[0].version, 3u);
  EXPECT_STREQ(table[0].method, "list_backup_tasks");
  size_t row = 1;
  for (unsigned version : {3u, 2u, 1u}) {
    for (const std::string& method : kCheckOrder) {
      SCOPED_TRACE(method + " v" + std::to_string(version));
      EXPECT_STREQ(table[row].api, "ZEMO.ZemoraOrvel.Files");
      EXPECT_EQ(table[row].version, version);
      EXPECT_EQ(table[row].method, method);
      EXPECT_NE(table[row].check, nullptr);
      EXPECT_EQ(table[row].reserved1, 0u);
      EXPECT_EQ(table[row].reserved2, 0u);
      ++row;
    }
  }
  EXPECT_EQ(table[67].api, nullptr);
  EXPECT_EQ(table[67].check, nullptr);
}

TEST(ModuleTables, EveryCheckRowHasItsOwnFunction) {
  std::set<ZemoCheckFn> functions;
  for (const ZemoAPICheckEntry* e = gCheckTable; e->api != nullptr; ++e) {
    functions.insert(e->check);
  }
  EXPECT_EQ(functions.size(), 67u);
}

// Runs the check row of `method` at `version` over the given parameters.
class ConvertOfficeCheck : public ::testing::Test {
 protected:
  int Run(const std::string& method, unsigned version, const Json::Value& params) {
    for (const ZemoAPICheckEntry* e = gCheckTable; e->api != nullptr; ++e) {
      if (e->method == method && e->version == version) {
        ZEMO::APIRequest request("ZEMO.ZemoraOrvel.Files", method, version, params);
        response_ = ZEMO::APIResponse();
        return e->check(&request, &response_);
      }
    }
    ADD_FAILURE() << "no check row for " << method;
    return -1;
  }
  void ExpectRejected(const char* name, const char* reason) {
    EXPECT_EQ(response_.GetErrorCode(), 120);
    EXPECT_EQ(response_.GetErrorDetails()["name"].asString(), name);
    EXPECT_EQ(response_.GetErrorDetails()["reason"].asString(), reason);
  }
  ZEMO::APIResponse response_;
};

TEST_F(ConvertOfficeCheck, AcceptsTheFiveConflictWordsAndNoConflict) {
  for (const char* word : {"skip", "stop", "version", "overwrite", "autorename"}) {
    Json::Value params = orvel::module::test::ParseJson(R"({"files": ["/mydrive/a.docx"]})");
    params["conflict_action"] = word;
    EXPECT_EQ(Run("convert_office", 3, params), 1) << word;
    EXPECT_FALSE(response_.IsError());
  }
  EXPECT_EQ(Run("convert_office", 1, orvel::module::test::ParseJson(R"({"files": []})")), 1);
}

TEST_F(ConvertOfficeCheck, RejectsAnUnknownConflictWordAsCondition) {
  for (unsigned version : {1u, 2u, 3u}) {
    EXPECT_EQ(
        Run("convert_office", version,
            orvel::module::test::ParseJson(R"({"files": ["a"], "conflict_action": "merge"})")),
        0);
    ExpectRejected("conflict_action", "condition");
  }
}

TEST_F(ConvertOfficeCheck, RejectsFilesThatAreMissingOrNotStrings) {
  EXPECT_EQ(Run("convert_office", 2, Json::Value(Json::objectValue)), 0);
  ExpectRejected("files", "required");
  EXPECT_EQ(Run("convert_office", 2, orvel::module::test::ParseJson(R"({"files": ["a", 3]})")), 0);
  ExpectRejected("files", "type");
  EXPECT_EQ(Run("convert_office", 2, orvel::module::test::ParseJson(R"({"files": "a"})")), 0);
  ExpectRejected("files", "type");
}

TEST_F(ConvertOfficeCheck, RejectsAConflictActionOfTheWrongType) {
  EXPECT_EQ(Run("convert_office", 1,
                orvel::module::test::ParseJson(R"({"files": ["a"], "conflict_action": 5})")),
            0);
  ExpectRejected("conflict_action", "type");
}

TEST_F(ConvertOfficeCheck, OtherMethodsAcceptAnything) {
  const Json::Value junk = orvel::module::test::ParseJson(R"({"files": 5, "conflict_action": 1})");
  EXPECT_EQ(Run("copy", 3, junk), 1);
  EXPECT_EQ(Run("list_backup_tasks", 3, junk), 1);
  EXPECT_EQ(Run("delete", 1, junk), 1);
  EXPECT_FALSE(response_.IsError());
}

TEST(ModuleProcess, UnknownMethodAnswersNoSuchApiOrMethod) {
  orvel::module::test::ScopedZemoRoot root;
  ZEMO::APIRequest request("ZEMO.ZemoraOrvel.Files", "rename", 1, Json::Value(Json::objectValue));
  ZEMO::APIResponse response;
  Process(&request, &response);
  EXPECT_EQ(response.GetErrorCode(), 103);
  EXPECT_EQ(response.GetErrorDetails()["message"].asString(), "no such API or method");
  EXPECT_TRUE(response.GetErrorDetails()["line"].isInt());
}

TEST(ModuleProcess, KnownMethodWithoutServiceStopsAtTheStatusGate) {
  orvel::module::test::ScopedZemoRoot root;  // no daemon listens here
  ZEMO::APIRequest request("ZEMO.ZemoraOrvel.Files", "list", 2, Json::Value(Json::objectValue));
  ZEMO::APIResponse response;
  Process(&request, &response);
  EXPECT_EQ(response.GetErrorCode(), 401);
  EXPECT_EQ(response.GetErrorDetails()["message"].asString(), "failed to get status");
}

}  // namespace
