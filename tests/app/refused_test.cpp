// A certificate that this library decodes and Windows refuses, beside good ones. Which ones those
// are is up to Windows. So the tests that must work everywhere run the commands in this process,
// where crypt32 is made to refuse one.
#include "updatertest.h"

#include "commands.h"
#include "cspstore.h"

#include "der.h"
#include "importhook.h"
#include "loadedtoken.h"

#include <windows.h>

#include <wincrypt.h>

#include <nlohmann/json.hpp>

#include <algorithm>

namespace updater {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using testsupport::ImportHook;

constexpr char sentence[] = "the certificate \"CN=Unwelcome\" (CKAIDHEX:01) cannot be registered, "
                            "because Windows does not accept it";

CertBuilder unwelcome() {
    return CertBuilder().names("Unwelcome", "Issuer");
}

/// Any certificate, of which crypt32 is made to say that it is none.
Bytes refused() {
    return unwelcome().build();
}

asn1::Certificate certificateOf(const Bytes& encoded) {
    asn1::Certificate certificate;
    asn1::der::decode({encoded.data(), encoded.size()}, certificate);
    return certificate;
}

/// For as long as it lives, crypt32 refuses a certificate, whoever asks in this process. Looking
/// for what was refused fails the test; it may end a process.
class RefusingWindows {
public:
    RefusingWindows() {
        const auto create = [this](auto& hook) {
            hook.replace([this, &hook](DWORD encoding, const BYTE* bytes, DWORD size) {
                return isRefused(bytes, size) ? nullptr : hook.original(encoding, bytes, size);
            });
        };
        create(createForProgram_);
        create(createForLibrary_);
        find_.replace([this](HCERTSTORE store, DWORD encoding, DWORD flags, DWORD type,
                             const void* wanted, const CERT_CONTEXT* previous) {
            EXPECT_TRUE(wanted) << "the store was asked for a certificate that Windows refuses";
            return wanted ? find_.original(store, encoding, flags, type, wanted, previous)
                          : nullptr;
        });
        add_.replace([this](HCERTSTORE store, DWORD encoding, const BYTE* bytes, DWORD size,
                            DWORD disposition, const CERT_CONTEXT** added) {
            return isRefused(bytes, size)
                       ? FALSE
                       : add_.original(store, encoding, bytes, size, disposition, added);
        });
    }

private:
    template <class Function>
    class Hook : public ImportHook<Function> {
    public:
        Hook(const wchar_t* module, const char* function)
            : ImportHook<Function>(GetModuleHandleW(module), "crypt32.dll", function) {}
    };
    static constexpr wchar_t library[] = L"certstoreupdater.dll";

    bool isRefused(const BYTE* bytes, DWORD size) const {
        if (!std::equal(bytes, bytes + size, refused_.begin(), refused_.end()))
            return false;
        SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
        return true;
    }

    const Bytes refused_ = refused();
    Hook<decltype(CertCreateCertificateContext)> createForProgram_{nullptr,
                                                                   "CertCreateCertificateContext"};
    Hook<decltype(CertCreateCertificateContext)> createForLibrary_{library,
                                                                   "CertCreateCertificateContext"};
    Hook<decltype(CertFindCertificateInStore)> find_{library, "CertFindCertificateInStore"};
    Hook<decltype(CertAddEncodedCertificateToStore)> add_{library,
                                                          "CertAddEncodedCertificateToStore"};
};

TEST(CspStore, CanHoldWhatWindowsAcceptsAndKeepsNoReferenceToIt) {
    const testsupport::TestStore store;
    CspStore registry(store.name(), testCsp);
    ImportHook<decltype(CertFreeCertificateContext)> release(
        GetModuleHandleW(nullptr), "crypt32.dll", "CertFreeCertificateContext");
    EXPECT_TRUE(registry.canHold(certificateOf(numbered(1))));
    EXPECT_EQ(release.count(), 1u);
}

TEST(CspStore, CannotHoldWhatWindowsRefuses) {
    const testsupport::TestStore store;
    CspStore registry(store.name(), testCsp);
    const RefusingWindows windows;
    EXPECT_FALSE(registry.canHold(certificateOf(refused())));
    EXPECT_TRUE(registry.canHold(certificateOf(numbered(1))));
}

/// Runs commands in this process, on a token with a certificate that Windows refuses and a good
/// one, and a store that has one for each of their containers.
class RefusedCertificate : public UpdaterTest {
protected:
    RefusedCertificate() {
        token->slots.front().objects = {
            faketoken::certificate(refused(), {1}, ""), faketoken::privateKey({1}),
            faketoken::certificate(numbered(2), {2}, ""), faketoken::privateKey({2})};
        store.add(predecessor);
        store.add(registered(numbered(12), L"CKAIDHEX:02", L"before"));
    }

    /// Runs a command with --json.
    json documentOf(Command command, bool dryRun = false) {
        Options options;
        options.command = command;
        options.output.json = true;
        options.csp = testCsp;
        options.store = store.name();
        options.module = module;
        options.signing = ModuleFile::Signing::notRequired;
        options.pin = {PinSource::Kind::environment, L"TEST_PIN"};
        options.dryRun = dryRun;
        SetEnvironmentVariableW(L"TEST_PIN", L"1234");
        Output output(nameOf(command), options.output);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        try {
            (command == Command::status ? showStatus : synchroniseStore)(options, output);
        } catch (const Failure& failure) {
            output.fail(failure);
        }
        const ExitCode code = output.finish();
        errors = testing::internal::GetCapturedStderr();
        const std::string document = testing::internal::GetCapturedStdout();
        EXPECT_EQ(code, ExitCode::incomplete);
        EXPECT_EQ(violationsOfSchema(document), "") << document;
        return json::parse(document, nullptr, false);
    }

    void expectToldOnce(const json& document) const {
        ASSERT_THAT(document.at("errors"), SizeIs(1));
        const json& error = document.at("errors")[0];
        EXPECT_EQ(error.at("exitCode"), 11);
        EXPECT_EQ(error.at("family"), "incomplete");
        EXPECT_THAT(error.at("message").get<std::string>(), HasSubstr(sentence));
        EXPECT_THAT(errors, AllOf(StartsWith("certstoreupdate: "), HasSubstr(sentence)));
    }
    static void expectUnusable(const json& sync) {
        ASSERT_THAT(sync.at("problems"), SizeIs(1));
        EXPECT_EQ(sync.at("problems")[0].at("problem"), "unusable");
        EXPECT_EQ(sync.at("problems")[0].at("container"), "CKAIDHEX:01");
        EXPECT_EQ(sync.at("problems")[0].at("certificate").at("subject"), "CN=Unwelcome");
        ASSERT_THAT(sync.at("changes"), SizeIs(2));
        for (const json& change : sync.at("changes"))
            EXPECT_EQ(change.at("container"), "CKAIDHEX:02");
    }

    const StoreEntry predecessor = registered(numbered(11), L"CKAIDHEX:01", L"before");
    faketoken::LoadedToken token;
    const RefusingWindows windows;
    std::string errors;
};

TEST_F(RefusedCertificate, IsUnusableForStatusBesideWhatIsRegisteredForItsContainer) {
    const json document = documentOf(Command::status);
    expectToldOnce(document);
    const json& entries = document.at("entries");
    ASSERT_THAT(entries, SizeIs(2));
    EXPECT_EQ(entries[0].at("state"), "unusable");
    EXPECT_EQ(entries[0].at("onToken").at("subject"), "CN=Unwelcome");
    EXPECT_EQ(entries[0].at("inStore").at("subject"), "CN=Holder 11");
    EXPECT_EQ(entries[1].at("state"), "changed");
}

TEST_F(RefusedCertificate, IsLeftOutBySyncWhichKeepsWhatIsRegisteredForItsContainer) {
    const json document = documentOf(Command::sync);
    expectToldOnce(document);
    expectUnusable(document.at("sync"));
    EXPECT_THAT(
        store.entries(),
        UnorderedElementsAre(predecessor, registered(numbered(2), L"CKAIDHEX:02", L"Holder 2")));
}

TEST_F(RefusedCertificate, IsLeftOutByADryRun) {
    const auto before = store.entries();
    const json document = documentOf(Command::sync, true);
    expectToldOnce(document);
    expectUnusable(document.at("sync"));
    EXPECT_THAT(store.entries(), testing::UnorderedElementsAreArray(before));
}

/// One that crypt32 itself may refuse, because its FILETIME begins with the year 1601.
Bytes ancient() {
    using namespace testsupport;
    return unwelcome()
        .validity(sequence({generalizedTime("10000101000000Z"), utcTime("360101000000Z")}))
        .build();
}

/// The same with the program itself, where crypt32 does refuse it.
class AncientCertificate : public UpdaterTest {
protected:
    void SetUp() override {
        const Bytes encoded = ancient();
        const CERT_CONTEXT* const context = CertCreateCertificateContext(
            X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size()));
        if (context) {
            CertFreeCertificateContext(context);
            GTEST_SKIP() << "this Windows accepts the certificate";
        }
        certificateWithKey(encoded, "01");
        certificateWithKey(numbered(2), "02");
    }

    const StoreEntry good = registered(numbered(2), L"CKAIDHEX:02", L"Holder 2");
    const StoreEntry other = bare(numbered(3));
};

TEST_F(AncientCertificate, DoesNotKeepTheNextOneOutOfAnEmptyStore) {
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(11, HasSubstr(sentence)));
    EXPECT_THAT(outcome.output, StartsWith("added  CKAIDHEX:02"));
    EXPECT_THAT(store.entries(), ElementsAre(good));
}

TEST_F(AncientCertificate, DoesNotEndTheProgramWhenTheStoreIsSearched) {
    store.add(other);
    EXPECT_THAT(run(L"sync", {L"--dry-run"}), EndsWithCode(11, HasSubstr(sentence)));
    const Outcome status = run(L"status");
    EXPECT_THAT(status, EndsWithCode(11, HasSubstr(sentence)));
    EXPECT_THAT(status.output, HasLine("unusable +CKAIDHEX:01 +with key +Unwelcome +.*"));
    EXPECT_THAT(status.output, HasLine("missing +CKAIDHEX:02 +with key +Holder 2 +.*"));
    EXPECT_THAT(run(L"sync"), EndsWithCode(11, HasSubstr(sentence)));
    EXPECT_THAT(store.entries(), UnorderedElementsAre(other, good));
}

TEST_F(AncientCertificate, IsToldByWatchWhichGoesOn) {
    store.add(other);
    std::vector<std::wstring> arguments = commandLine(L"watch", {L"--json"});
    testsupport::RunningUpdater updater(start(arguments));
    const std::string output = updater.waitForOutput("\"synchronised\"");
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
    EXPECT_LT(output.find("because Windows does not accept it"), output.find("\"synchronised\""));
    const json result = json::parse(output.substr(output.find("{\"event\":\"synchronised\"")));
    EXPECT_EQ(result.at("sync").at("problems").at(0).at("problem"), "unusable");
    EXPECT_THAT(store.entries(), UnorderedElementsAre(other, good));
}

} // namespace
} // namespace updater
