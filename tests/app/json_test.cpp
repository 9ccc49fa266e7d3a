// What programs read: one document with what was asked for and what went wrong, as the schema says.
#include "updatertest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace updater {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class JsonOutput : public UpdaterTest {
protected:
    /// Runs a command, expects the exit code and a document as the schema says.
    json documentOf(const std::vector<std::wstring>& arguments, int exitCode) {
        const Outcome outcome = runWith(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.errors;
        EXPECT_EQ(violationsOfSchema(outcome.output), "") << outcome.output;
        EXPECT_THAT(outcome.output, testing::Each(testing::Le('\x7E'))) << "it is not ASCII";
        EXPECT_THAT(outcome.output, testing::Each(testing::Ge('\n'))) << "it is not ASCII";
        const json document = json::parse(outcome.output);
        EXPECT_EQ(document.at("exitCode"), exitCode);
        return document;
    }
    json documentOf(const std::wstring& command, const std::vector<std::wstring>& more = {},
                    int exitCode = 0) {
        std::vector<std::wstring> arguments = commandLine(command, more);
        arguments.push_back(L"--json");
        return documentOf(arguments, exitCode);
    }
};

const json holderOne = {{"subject", "CN=Holder 1"},
                        {"issuer", "CN=Issuer"},
                        {"serialNumber", "01"},
                        {"notBefore", "2026-01-01T00:00:00Z"},
                        {"notAfter", "2036-01-01T00:00:00Z"}};

TEST_F(JsonOutput, OfStatusHasEveryContainer) {
    certificateWithKey(numbered(1), "01", "first");
    certificate(numbered(2), "02");
    store.add(registered(numbered(3), L"CKAIDHEX:03", L"gone"));
    const json document = documentOf(L"status");
    EXPECT_EQ(document.at("command"), "status");
    const json& entries = document.at("entries");
    ASSERT_THAT(entries, SizeIs(3));
    EXPECT_EQ(entries[0], (json{{"state", "missing"},
                                {"container", "CKAIDHEX:01"},
                                {"class", "with-key"},
                                {"hasKey", true},
                                {"friendlyName", "first"},
                                {"onToken", holderOne},
                                {"inStore", nullptr}}));
    EXPECT_EQ(entries[1].at("state"), "token-only");
    EXPECT_EQ(entries[1].at("class"), "other");
    EXPECT_EQ(entries[1].at("hasKey"), false);
    EXPECT_EQ(entries[2].at("state"), "stale");
    EXPECT_EQ(entries[2].at("class"), nullptr);
    EXPECT_EQ(entries[2].at("onToken"), nullptr);
    EXPECT_EQ(entries[2].at("inStore").at("subject"), "CN=Holder 3");
}

TEST_F(JsonOutput, OfSyncHasChangesAndProblems) {
    certificateWithKey(numbered(1), "01");
    certificateWithKey(numbered(2), "02");
    store.add(bare(numbered(2)));
    store.add(registered(numbered(3), L"CKAIDHEX:03", L"gone"));
    const json document = documentOf(L"sync", {}, 11);
    const json& sync = document.at("sync");
    EXPECT_EQ(sync.at("dryRun"), false);
    ASSERT_THAT(sync.at("changes"), SizeIs(2));
    EXPECT_EQ(
        sync.at("changes")[0],
        (json{{"change", "added"}, {"container", "CKAIDHEX:01"}, {"certificate", holderOne}}));
    EXPECT_EQ(sync.at("changes")[1].at("change"), "removed");
    ASSERT_THAT(sync.at("problems"), SizeIs(1));
    EXPECT_EQ(sync.at("problems")[0].at("problem"), "not-ours");
    ASSERT_THAT(document.at("errors"), SizeIs(1));
    EXPECT_EQ(document.at("errors")[0].at("family"), "incomplete");
}

TEST_F(JsonOutput, OfADryRunSaysSo) {
    certificateWithKey(numbered(1), "01");
    const json document = documentOf(L"sync", {L"--dry-run"});
    EXPECT_EQ(document.at("sync").at("dryRun"), true);
    ASSERT_THAT(document.at("sync").at("changes"), SizeIs(1));
    EXPECT_EQ(document.at("sync").at("changes")[0].at("change"), "would-add");
    EXPECT_THAT(store.entries(), IsEmpty());
}

TEST_F(JsonOutput, OfADryRunOfCleanCountsWhatWouldBeRemoved) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    store.add(registered(numbered(2), L"CKAIDHEX:02", L"two"));
    const auto before = store.entries();
    EXPECT_EQ(documentOf(L"clean", {L"--dry-run"}).at("clean"),
              (json{{"dryRun", true}, {"wouldRemoveContainers", 2}, {"foreignContainers", 0}}));
    EXPECT_EQ(store.entries(), before);
}

TEST_F(JsonOutput, IsAsciiWhateverACertificateIsCalled) {
    certificateWithKey(CertBuilder().names("Zo\xC3\xAB \xE2\x80\xAE\xC2\x9B", "Issuer").build(),
                       "01");
    const json document = documentOf(L"status");
    EXPECT_EQ(document.at("entries")[0].at("onToken").at("subject"),
              "CN=Zo\xC3\xAB \xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(JsonOutput, OfListHasTheCspOfEachEntry) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    for (const json& document :
         {documentOf(L"list"), documentOf({L"list", L"--json", L"--store", store.name()}, 0)}) {
        ASSERT_THAT(document.at("entries"), SizeIs(1));
        EXPECT_EQ(document.at("entries")[0], (json{{"csp", testCspUtf8},
                                                   {"container", "CKAIDHEX:01"},
                                                   {"ours", true},
                                                   {"certificate", holderOne}}));
    }
}

TEST_F(JsonOutput, OfCleanCounts) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    StoreEntry foreign = registered(numbered(2), L"CKAIDHEX:02", L"two");
    foreign.korvaneCspRef.reset();
    store.add(foreign);
    EXPECT_EQ(documentOf(L"clean").at("clean"), (json{{"dryRun", false},
                                                      {"removedContainers", 1},
                                                      {"keptContainers", 0},
                                                      {"foreignContainers", 1}}));
}

TEST_F(JsonOutput, OfCspsListsThem) {
    const json document = documentOf({L"csps", L"--json"}, 0);
    EXPECT_THAT(document.at("csps"), testing::Contains(json(testCspUtf8)));
}

TEST_F(JsonOutput, OfVerifyAndGrantHasEachPath) {
    const std::wstring file = folder.write("text", "text").wstring();
    const json verified = documentOf({L"verify", file, L"--json"}, 8);
    ASSERT_THAT(verified.at("files"), SizeIs(1));
    EXPECT_EQ(verified.at("files")[0].at("trusted"), false);
    const json granted = documentOf({L"grant", file + L"-none", L"--json"}, 9);
    ASSERT_THAT(granted.at("paths"), SizeIs(1));
    EXPECT_EQ(granted.at("paths")[0].at("granted"), false);
}

TEST_F(JsonOutput, HasAFailureWithAllThatLedToIt) {
    module = folder.write("text.dll", "This is no library.").wstring();
    const json document = documentOf(L"sync", {}, 3);
    ASSERT_THAT(document.at("errors"), SizeIs(1));
    const json& error = document.at("errors")[0];
    EXPECT_EQ(error.at("exitCode"), 3);
    EXPECT_EQ(error.at("family"), "module");
    EXPECT_THAT(error.at("message").get<std::string>(), HasSubstr("cannot be loaded"));
    const json& event = error.at("event");
    EXPECT_EQ(event.at("name"), "Pkcs11Error_CryptokiError");
    EXPECT_EQ(event.at("parameters"), (json{{{"key", "CRYPTOKY_ERROR_CODE"}, {"value", "5"}}}));
    EXPECT_EQ(event.at("cause").at("name"), "ModuleNotLoaded");
    EXPECT_THAT(event.at("file").get<std::string>(), HasSubstr("pkcs11\\src\\"));
    EXPECT_FALSE(document.contains("sync"));
}

TEST_F(JsonOutput, LeavesOutWhatTheCommandDidNotComeTo) {
    certificateWithKey(numbered(1), "01");
    const std::wstring impossible(300, L'x');
    for (const wchar_t* const command : {L"status", L"sync", L"list", L"clean"}) {
        std::vector<std::wstring> arguments = commandLine(command, {L"--json"});
        std::replace(arguments.begin(), arguments.end(), store.name(), impossible);
        const json document = documentOf(arguments, 7);
        for (const char* const member : {"entries", "sync", "clean"})
            EXPECT_FALSE(document.contains(member)) << member;
    }
}

TEST_F(JsonOutput, HasWarnings) {
    const json document =
        documentOf({L"clean", L"--csp", L"No Such CSP", L"--store", store.name(), L"--json"}, 0);
    ASSERT_THAT(document.at("warnings"), SizeIs(1));
    EXPECT_THAT(document.at("warnings")[0].at("message").get<std::string>(),
                HasSubstr("No Such CSP"));
}

TEST_F(JsonOutput, OfAMistypedCommandLineIsADocumentToo) {
    const json document = documentOf({L"sync", L"--jsn", L"--json"}, 2);
    EXPECT_EQ(document.at("command"), "");
    EXPECT_EQ(document.at("errors")[0].at("family"), "usage");
}

TEST_F(JsonOutput, IsUtf8WhateverTheNames) {
    using namespace testsupport;
    certificateWithKey(CertBuilder().names("\xD0\x96\xE4\xB8\xAD", "Issuer").build(), "01",
                       "\xD7\x90");
    const json document = documentOf(L"status");
    EXPECT_EQ(document.at("entries")[0].at("friendlyName"), "\xD7\x90");
    EXPECT_EQ(document.at("entries")[0].at("onToken").at("subject"), "CN=\xD0\x96\xE4\xB8\xAD");
}

} // namespace
} // namespace updater
