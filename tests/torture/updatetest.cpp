// The job that an updating application does, and what has to hold after it failed somewhere.
#include "updatetest.h"

#include "certbuilder.h"
#include "certstorehelper.h"
#include "openhandles.h"
#include "pkcs11helper.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace torture {

namespace {

using faketoken::certificate;
using faketoken::privateKey;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreHelper;
using pkcs11::certstoreupdater::Pkcs11Helper;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::UnorderedElementsAre;
using testsupport::CertBuilder;
using testsupport::StoreEntry;

constexpr char issuer[] = "Torture issuer";

std::string holder(int number) {
    return "Holder " + std::to_string(number);
}

/// A certificate of holder 1, 2, ... 21.
const Bytes& leaf(int number) {
    static const std::vector<Bytes> leaves = [] {
        std::vector<Bytes> made;
        for (int i = 1; i <= 21; ++i)
            made.push_back(CertBuilder().serialNumber(i).names(holder(i), issuer).build());
        return made;
    }();
    return leaves.at(static_cast<std::size_t>(number - 1));
}

Bytes selfSigned() {
    return CertBuilder().names(issuer, issuer).build();
}

Bytes authority() {
    return CertBuilder()
        .names("Authority", issuer)
        .extensions({testsupport::basicConstraints(true)})
        .build();
}

StoreEntry registered(const Bytes& encoded, const wchar_t* cspName, const std::string& reference,
                      const wchar_t* container, const std::wstring& friendlyName) {
    testsupport::KeyProvInfo info;
    info.container = container;
    info.provider = cspName;
    return {encoded, info, testsupport::friendlyNameBytes(friendlyName),
            Bytes(reference.begin(), reference.end())};
}

bool isBefore(const StoreEntry& one, const StoreEntry& other) {
    return one.encoded < other.encoded;
}

/// A certificate and the properties that it has, for the message of a failing test.
std::string summaryOf(const StoreEntry& entry) {
    std::string text;
    for (int number = 1; number <= 21; ++number)
        if (entry.encoded == leaf(number))
            text = holder(number);
    if (entry.keyProvInfo)
        text += ", key provider information";
    if (entry.friendlyName)
        text += ", friendly name";
    if (entry.korvaneCspRef)
        text += ", reference";
    return text;
}

std::vector<std::string> summaryOf(const std::vector<StoreEntry>& entries) {
    std::vector<std::string> texts;
    for (const StoreEntry& entry : entries)
        texts.push_back(summaryOf(entry));
    return texts;
}

/// Expects a store to hold exactly this, in whatever order.
void expectEntries(std::vector<StoreEntry> present, std::vector<StoreEntry> expected) {
    std::sort(present.begin(), present.end(), isBefore);
    std::sort(expected.begin(), expected.end(), isBefore);
    EXPECT_THAT(summaryOf(present), ElementsAreArray(summaryOf(expected)));
    EXPECT_TRUE(present == expected) << "they differ in values that the summaries leave out";
}

bool contains(const std::vector<StoreEntry>& entries, const StoreEntry& wanted) {
    return std::find(entries.begin(), entries.end(), wanted) != entries.end();
}

/// Whether the entry has the first so many properties of the wanted one, in the order in which they
/// are written, and no others.
bool isPrefixOf(const StoreEntry& entry, const StoreEntry& wanted) {
    StoreEntry prefix = wanted;
    if (entry == prefix)
        return true;
    prefix.korvaneCspRef.reset();
    if (entry == prefix)
        return true;
    prefix.friendlyName.reset();
    if (entry == prefix)
        return true;
    prefix.keyProvInfo.reset();
    return entry == prefix;
}

std::wstring textOf(const buffer::Buffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

const buffer::Buffer<unsigned char>& pin() {
    static const unsigned char digits[] = {'1', '2', '3', '4'};
    static const buffer::Buffer<unsigned char> buffer(digits, sizeof digits);
    return buffer;
}

} // namespace

UpdateTest::UpdateTest() {
    foreign_ = {registered(leaf(20), L"Another CSP", "CKAIDHEX:01\nAnother CSP\n", L"CKAIDHEX:01",
                           L"Of another CSP"),
                StoreEntry{leaf(21), {}, {}, {}}};
    for (const StoreEntry& entry : foreign_)
        store.add(entry);
    renewToken();
}

UpdateTest::~UpdateTest() = default;

void UpdateTest::SetUp() {
    expectCleanUpdate({});
}

void UpdateTest::TearDown() {
    EXPECT_FALSE(token.release()) << "the module is still loaded";
}

void UpdateTest::renewToken() {
    const int replaced = 3 + ++generation_ % 2;
    const std::string label = "Generation " + std::to_string(generation_ % 2);
    token->slots[0].objects = {
        certificate(leaf(1), {1}, ""),
        certificate(leaf(replaced), {2}, label),
        certificate(leaf(9), {9}, "nine"),
        certificate(selfSigned(), {8}, "eight"),
        certificate(authority(), {7}, "seven"),
        privateKey({1}),
        privateKey({2}),
    };
    old_ = std::exchange(
        new_, {registered(leaf(1), csp, "CKAIDHEX:01\nTorture CSP\n", L"CKAIDHEX:01", L"Holder 1"),
               registered(leaf(replaced), csp, "CKAIDHEX:02\nTorture CSP\n", L"CKAIDHEX:02",
                          std::wstring(label.begin(), label.end()))});
}

UpdateRun UpdateTest::update() {
    UpdateRun run;
    token->sessionsLeftAtFinalize = 0;
    handles_ = openHandles();
    run.outcome = outcomeOf([&] { doJob(run); });
    return run;
}

void UpdateTest::doJob(UpdateRun& run) {
    Pkcs11Helper helper(modulePath);
    helper.login(pin());
    const auto all = helper.getAllCerts();
    const auto certs = helper.getCertsWithPrivateKey();
    const auto others = helper.getOtherCerts();
    run.harvested = {
        all->selfSignedCerts.size(), all->caCerts.size(), all->certsWithPrivateKey.size(),
        all->otherCerts.size(),      certs->size(),       others->size()};

    run.stage = Stage::opening;
    CertStoreHelper helperOfStore(store.name());
    run.stage = Stage::deleting;
    helperOfStore.deleteCspCertificates(csp, true);
    run.stage = Stage::adding;
    helperOfStore.addCspCertificates(csp, *certs, true, false, true);
    run.stage = Stage::listing;
    const auto listed = helperOfStore.listCertsByCsp(csp, false);
    for (const auto& [container, item] : *listed)
        run.listed.push_back(textOf(container));
    run.stage = Stage::finding;
    for (const auto& [container, item] : *certs)
        run.found +=
            helperOfStore.findCspCertificate(csp, container.c_str(), item.certificate, true);
    run.stage = Stage::closing;
}

std::size_t UpdateTest::keptReferences(const UpdateRun& run) const {
    // What a search found stays referred to until the store is closed.
    std::size_t kept = windows.count("CertFindCertificateInStore");
    // So does the certificate at which a deletion ended early ...
    const bool isDeclined = windows.failedCall() && windows.failedError() == ERROR_CANCELLED &&
                            windows.failedCall()->function == "CertDeleteCertificateFromStore";
    if (isDeclined || (run.stage == Stage::deleting && !run.outcome.isSuccess()))
        ++kept;
    // ... and one that could not be given all its three properties.
    if (windows.count("CertSetCertificateContextProperty") !=
        3 * windows.count("CertAddEncodedCertificateToStore"))
        ++kept;
    return kept;
}

void UpdateTest::expectAllIsGivenBack(const UpdateRun& run) {
    const auto answeredOk = [&](const char* function) {
        const std::vector<faketoken::Call> calls = token->callsOf(function);
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [](const faketoken::Call& call) { return call.answer == CKR_OK; }));
    };
    EXPECT_EQ(token->openSessions(), 0u);
    EXPECT_EQ(token->activeSearches(), 0u);
    EXPECT_EQ(token->sessionsLeftAtFinalize, 0u);
    EXPECT_EQ(token->count("C_CloseSession"), answeredOk("C_OpenSession"));
    EXPECT_EQ(token->count("C_FindObjectsFinal"), answeredOk("C_FindObjectsInit"));
    EXPECT_EQ(token->count("C_Finalize"), answeredOk("C_Initialize"));

    const std::size_t kept = keptReferences(run);
    EXPECT_EQ(windows.contexts.held(), kept);
    referencesKept_ += run.outcome.isSuccess() ? 0 : kept;
    windows.contexts.settle([](const void* context) {
        CertFreeCertificateContext(static_cast<const CERT_CONTEXT*>(context));
    });
    EXPECT_EQ(windows.stores.held(), 0u);
    EXPECT_EQ(windows.modules.held(), 0u);
    EXPECT_EQ(windows.contexts.strays() + windows.stores.strays() + windows.modules.strays(), 0u);
    EXPECT_EQ(openHandles(), handles_);
}

void UpdateTest::expectForeignEntries(const std::vector<StoreEntry>& present) const {
    for (const StoreEntry& entry : foreign_)
        EXPECT_TRUE(contains(present, entry)) << summaryOf(entry);
}

std::vector<StoreEntry> UpdateTest::partialEntries(const std::vector<StoreEntry>& present) const {
    std::vector<StoreEntry> partial;
    for (const StoreEntry& entry : present) {
        if (contains(foreign_, entry) || contains(old_, entry) || contains(new_, entry))
            continue;
        EXPECT_TRUE(std::any_of(new_.begin(), new_.end(), [&](const StoreEntry& wanted) {
            return isPrefixOf(entry, wanted);
        })) << summaryOf(entry);
        partial.push_back(entry);
    }
    EXPECT_LE(partial.size(), 1u) << "the first failure ends the job";
    return partial;
}

void UpdateTest::expectStoreIsUntouched() {
    std::vector<StoreEntry> expected = foreign_;
    expected.insert(expected.end(), old_.begin(), old_.end());
    expectEntries(store.entries(), expected);
}

void UpdateTest::expectStoreIsComplete() {
    old_ = new_;
    expectStoreIsUntouched();
}

void UpdateTest::expectStoreCanBeCompleted() {
    const std::vector<StoreEntry> present = store.entries();
    expectForeignEntries(present);
    const std::vector<StoreEntry> partial = partialEntries(present);
    expectCleanUpdate(partial);
    if (partial.empty())
        return;
    ++partialsMet_;
    deleteCertificatesOfToken();
    expectCleanUpdate({});
}

void UpdateTest::expectRemoved() {
    expectEntries(store.entries(), foreign_);
}

void UpdateTest::expectNoPartialEntries() {
    const std::vector<StoreEntry> present = store.entries();
    expectForeignEntries(present);
    EXPECT_TRUE(partialEntries(present).empty());
}

void UpdateTest::expectAllStatesWereMet() const {
    EXPECT_GT(partialsMet_, 0u);
    EXPECT_GT(referencesKept_, 0u);
}

void UpdateTest::expectCleanUpdate(const std::vector<StoreEntry>& partial) {
    windows.begin();
    token->forgetCalls();
    const UpdateRun run = update();
    EXPECT_EQ(run.outcome, success);
    EXPECT_THAT(run.harvested, ElementsAre(1u, 1u, 2u, 1u, 2u, 1u));
    expectAllIsGivenBack(run);

    std::vector<StoreEntry> expected = foreign_;
    for (const StoreEntry& wanted : new_) {
        const auto left = std::find_if(partial.begin(), partial.end(), [&](const auto& entry) {
            return entry.encoded == wanted.encoded;
        });
        expected.push_back(left == partial.end() ? wanted : *left);
    }
    expectEntries(store.entries(), expected);
    if (partial.empty()) {
        EXPECT_THAT(run.listed, UnorderedElementsAre(L"CKAIDHEX:01", L"CKAIDHEX:02"));
        EXPECT_EQ(run.found, 2u);
    }
}

void UpdateTest::deleteCertificatesOfToken() {
    CertStoreHelper(store.name()).deleteCertificates(*readToken());
}

std::unique_ptr<CertMap> UpdateTest::readToken() const {
    Pkcs11Helper helper(modulePath);
    helper.login(pin());
    return helper.getCertsWithPrivateKey();
}

const StoreEntry& UpdateTest::entryOf(const Bytes& certificate) const {
    for (const StoreEntry& entry : new_)
        if (entry.encoded == certificate)
            return entry;
    throw std::logic_error("no certificate that is to be registered");
}

} // namespace torture
