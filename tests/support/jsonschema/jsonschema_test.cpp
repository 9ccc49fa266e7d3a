// Documents held against a schema.
#include "jsonschema.h"
#include "temporaryfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace testsupport {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class JsonSchema : public testing::Test {
protected:
    JsonSchema() {
        write(R"({
            "$schema": "http://json-schema.org/draft-07/schema#",
            "oneOf": [{"$ref": "#/definitions/list"}, {"$ref": "#/definitions/failure"}],
            "definitions": {
                "list": {
                    "type": "object",
                    "required": ["entries"],
                    "properties": {
                        "entries": {"type": "array", "items": {"$ref": "#/definitions/entry"}}
                    },
                    "additionalProperties": false
                },
                "entry": {
                    "type": "object",
                    "required": ["state"],
                    "properties": {
                        "state": {"enum": ["same", "missing"]},
                        "serial": {"type": ["string", "null"], "pattern": "^([0-9A-F]{2})+$"}
                    }
                },
                "failure": {
                    "type": "object",
                    "required": ["code"],
                    "properties": {"code": {"type": "integer", "minimum": 1}},
                    "if": {"properties": {"code": {"const": 2}}},
                    "then": {"required": ["why"]}
                }
            }
        })");
    }

    void write(const std::string& text) { std::ofstream(file_) << text; }
    std::string violationsOf(const std::string& document) { return violations(document, file_); }

    const TemporaryFolder folder_{"certstoreupdater jsonschema"};
    const std::filesystem::path file_ = folder_.path() / "test.schema.json";
};

TEST_F(JsonSchema, IsKeptByWhatIsAsItSays) {
    EXPECT_EQ(violationsOf(R"({"entries": []})"), "");
    EXPECT_EQ(violationsOf(R"({"entries": [{"state": "same", "serial": "0A"},
                                           {"state": "missing", "serial": null}]})"),
              "");
    EXPECT_EQ(violationsOf(R"({"code": 1})"), "");
    EXPECT_EQ(violationsOf(R"({"code": 2, "why": ""})"), "");
}

TEST_F(JsonSchema, IsViolatedByAMissingMember) {
    EXPECT_NE(violationsOf("{}"), "");
    EXPECT_THAT(violationsOf(R"({"entries": [{"serial": "0A"}]})"),
                AllOf(HasSubstr("[entries]"), HasSubstr("state")));
}

TEST_F(JsonSchema, IsViolatedByAMemberTooMany) {
    EXPECT_THAT(violationsOf(R"({"entries": [], "more": 1})"), HasSubstr("more"));
}

TEST_F(JsonSchema, IsViolatedByAnotherTypeOrValue) {
    EXPECT_NE(violationsOf("[]"), "");
    EXPECT_NE(violationsOf(R"({"entries": "none"})"), "");
    EXPECT_NE(violationsOf(R"({"entries": [{"state": "different"}]})"), "");
    EXPECT_NE(violationsOf(R"({"entries": [{"state": "same", "serial": "0a"}]})"), "");
    EXPECT_NE(violationsOf(R"({"code": 0})"), "");
    EXPECT_NE(violationsOf(R"({"code": "1"})"), "");
}

TEST_F(JsonSchema, IsViolatedByWhatACaseOfItAsksFor) {
    EXPECT_NE(violationsOf(R"({"code": 2})"), "");
}

TEST_F(JsonSchema, IsViolatedByTwoChoicesAtOnce) {
    write(R"({"oneOf": [{"type": "integer"}, {"minimum": 1}]})");
    EXPECT_EQ(violationsOf("0"), "");
    EXPECT_NE(violationsOf("1"), "");
}

TEST_F(JsonSchema, IsViolatedByWhatIsNoJson) {
    EXPECT_NE(violationsOf(""), "");
    EXPECT_NE(violationsOf(R"({"entries": [])"), "");
    EXPECT_NE(violationsOf(R"({"entries": []} {})"), "");
}

TEST_F(JsonSchema, MustBeThereAndBeOne) {
    EXPECT_THROW(violations("{}", file_.parent_path() / "none.json"), std::runtime_error);
    write("{");
    EXPECT_THROW(violationsOf("{}"), std::runtime_error);
    write(R"({"type": "nothing"})");
    EXPECT_THROW(violationsOf("{}"), std::runtime_error);
    write(R"({"$ref": "#/definitions/none"})");
    EXPECT_THROW(violationsOf("{}"), std::runtime_error);
}

} // namespace
} // namespace testsupport
