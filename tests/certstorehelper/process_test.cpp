// What other processes see of a store, and what is seen of theirs.
#include "storetest.h"

namespace testsupport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CertStoreHelperAndOtherProcesses : public StoreTest {};

TEST_F(CertStoreHelperAndOtherProcesses, ShowWhatWasRegisteredWhileTheStoreIsOpen) {
    CertStoreHelper helper(storeName());
    helper.addCspCertificate(L"CSP", L"container", L"n\u00E4me", certificateOf(numbered(1)), true);
    EXPECT_THAT(
        readStoreInOtherProcess(storeName()),
        ElementsAre(StoreEntry{numbered(1), keyProvInfo(L"container", L"CSP"),
                               friendlyNameBytes(L"n\u00E4me"), reference("container\nCSP\n")}));
}

TEST_F(CertStoreHelperAndOtherProcesses, ShowWhatWasHalfRegistered) {
    CertStoreHelper helper(storeName());
    CryptoApi api;
    api.setProperty.fail(2, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROW(
        helper.addCspCertificate(L"CSP", L"container", L"name", certificateOf(numbered(1)), true),
        CertStoreUpdaterError);
    EXPECT_THAT(readStoreInOtherProcess(storeName()),
                ElementsAre(StoreEntry{numbered(1), keyProvInfo(L"container", L"CSP"), {}, {}}));
}

TEST_F(CertStoreHelperAndOtherProcesses, NoLongerShowWhatWasRemoved) {
    for (const int number : {1, 2, 3, 4})
        store.add({numbered(number), {}, {}, reference("container\nCSP\n")});
    CertStoreHelper helper(storeName());
    helper.deleteCertificate(certificateOf(numbered(1)));
    EXPECT_THAT(readStoreInOtherProcess(storeName()), SizeIs(3));
    helper.deleteCspCertificates(L"CSP", false);
    EXPECT_THAT(readStoreInOtherProcess(storeName()), IsEmpty());
}

TEST_F(CertStoreHelperAndOtherProcesses, AddWhatIsFoundListedAndRemoved) {
    addToStoreInOtherProcess(storeName(),
                             {numbered(1), keyProvInfo(L"container", L"CSP"),
                              friendlyNameBytes(L"name"), reference("container\nCSP\n")});
    CertStoreHelper helper(storeName());
    EXPECT_TRUE(helper.findCspCertificate(L"CSP", L"container", certificateOf(numbered(1)), true));
    EXPECT_THAT(*helper.listCertsByCsp(L"CSP", true), SizeIs(1));
    helper.deleteCspCertificates(L"CSP", true);
    EXPECT_THAT(readStoreInOtherProcess(storeName()), IsEmpty());
}

} // namespace
} // namespace testsupport
