// The job that an updating application does, from the module to the store, and what has to hold
// after it failed somewhere.
#pragma once

#include "outcome.h"
#include "windowscalls.h"

#include "certitem.h"
#include "loadedtoken.h"
#include "storeview.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace torture {

enum class Stage { token, opening, deleting, adding, listing, finding, closing };

/// How a run of the job went.
struct UpdateRun {
    Outcome outcome;
    Stage stage = Stage::token;         ///< the last that was reached
    std::vector<std::size_t> harvested; ///< the sizes of all maps that were read
    std::vector<std::wstring> listed;
    std::size_t found = 0;
};

/// A token with certificates of every class, and a store with certificates of an earlier run, of
/// another CSP and of nobody. The store is in step with the token when a test begins.
///
/// The token's contents change from one generation to the next: of the two certificates that are
/// registered one stays, the other is replaced by one with the same key container.
class UpdateTest : public testing::Test {
protected:
    UpdateTest();
    ~UpdateTest() override;
    void SetUp() override;
    void TearDown() override;

    /// Replaces what is on the token by the next generation.
    void renewToken();
    /// Does the job once; `windows` fails the call that it was told to.
    UpdateRun update();

    /// After an update that may have failed: everything was given back but for the references to
    /// certificates that are meant to be kept.
    void expectAllIsGivenBack(const UpdateRun& run);
    /// The store is on its way from the old to the new generation, each certificate of the library
    /// being as it was, away, complete or with the properties that were written first; nothing else
    /// was touched. An update without failures then completes it, but for a certificate that was
    /// left without all its properties: present certificates are never touched, so that one has to
    /// be deleted first.
    void expectStoreCanBeCompleted();
    void expectStoreIsUntouched();
    void expectStoreIsComplete();
    /// No certificate of the library is in the store; the others are.
    void expectRemoved();
    void expectNoPartialEntries();
    /// Certificates were left without all their properties, and references were kept.
    void expectAllStatesWereMet() const;

    /// The certificates of the token that are registered.
    std::unique_ptr<pkcs11::certstoreupdater::CertMap> readToken() const;
    /// What the store is to hold of a certificate of the token.
    const testsupport::StoreEntry& entryOf(const Bytes& certificate) const;

    static constexpr wchar_t csp[] = L"Torture CSP";
    const std::string modulePath = faketoken::modulePath();
    faketoken::LoadedToken token;
    testsupport::TestStore store;
    WindowsCalls windows;

private:
    void doJob(UpdateRun& run);
    std::size_t keptReferences(const UpdateRun& run) const;
    void expectForeignEntries(const std::vector<testsupport::StoreEntry>& present) const;
    std::vector<testsupport::StoreEntry>
    partialEntries(const std::vector<testsupport::StoreEntry>& present) const;
    void expectCleanUpdate(const std::vector<testsupport::StoreEntry>& partial);
    void deleteCertificatesOfToken();

    int generation_ = 0;
    std::vector<testsupport::StoreEntry> foreign_;
    std::vector<testsupport::StoreEntry> old_; ///< of the generation before
    std::vector<testsupport::StoreEntry> new_;
    DWORD handles_ = 0;
    std::size_t partialsMet_ = 0;
    std::size_t referencesKept_ = 0;
};

} // namespace torture
